// The rack server of the scenario that ships, served in this process on a socket of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "service/service.h"
#include "simulator/drift.h"
#include "tests/harness/eventually.h"

namespace tavo::service {

class ServedScenario : public testing::Test {
 protected:
  ServedScenario();
  ~ServedScenario() override;

  void start();
  void stop();

  // Runs one command; the words are separated by blanks.
  std::string control_words(const std::string &words);

  const std::filesystem::path directory_;
  const std::string socket_ = directory_ / "socket";
  std::unique_ptr<Machine> machine_;

 private:
  Descriptor stop_;
  Drift drift_;
  std::unique_ptr<Service> service_;
  std::thread thread_;
};

// Makes an empty directory, which the caller removes.
std::filesystem::path make_directory();

// A field of a binary record.
template <class Integer>
Integer integer_at(const void *record, std::size_t offset) {
  Integer value;
  std::memcpy(&value, static_cast<const char *>(record) + offset, sizeof value);
  return value;
}

inline std::string text_at(const void *record, std::size_t offset, std::size_t size) {
  const char *text = static_cast<const char *>(record) + offset;
  return {text, strnlen(text, size)};
}

}  // namespace tavo::service
