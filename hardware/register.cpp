#include "hardware/register.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "service/replaced_file.h"

namespace tavo::service {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RegisteredFault, index, class_code, unit, severity, cause, description, affected,
                                   affected_oid, first_time)

Register::Register(std::filesystem::path file) : file_(std::move(file)) {
  if (!file_.empty() && std::filesystem::exists(file_)) {
    load();
  }
}

std::int64_t Register::number_of(const std::string &group, const std::string &key, std::int64_t wanted) {
  const std::lock_guard lock(mutex_);
  return number_for(group, key, wanted);
}

void Register::keep_part(const std::string &group, const std::string &place, const std::string &name) {
  const std::lock_guard lock(mutex_);
  number_for(group, place);
  std::string &known = names_[group][place];
  if (known != name) {
    known = name;
    save();
  }
}

std::map<std::string, RegisteredPart> Register::parts(const std::string &group) {
  const std::lock_guard lock(mutex_);
  std::map<std::string, RegisteredPart> parts;
  for (const auto &[place, name] : names_[group]) {
    parts[place] = {.number = number_for(group, place), .name = name};
  }
  return parts;
}

bool Register::forget_part(const std::string &group, std::int64_t number) {
  const std::lock_guard lock(mutex_);
  auto &numbers = numbers_[group];
  const auto found = std::ranges::find_if(numbers, [&](const auto &entry) { return entry.second == number; });
  if (found == numbers.end() || names_[group].erase(found->first) == 0) {
    return false;
  }
  numbers.erase(found);
  save();
  return true;
}

std::int64_t Register::number_for(const std::string &group, const std::string &key, std::int64_t wanted) {
  auto &numbers = numbers_[group];
  const auto known = numbers.find(key);
  if (known != numbers.end()) {
    return known->second;
  }
  const auto is_taken = [&](std::int64_t number) {
    return std::ranges::any_of(numbers, [&](const auto &entry) { return entry.second == number; });
  };
  std::int64_t number = wanted > 0 && !is_taken(wanted) ? wanted : 1;
  while (is_taken(number)) {
    ++number;
  }
  numbers[key] = number;
  save();
  return number;
}

std::map<std::string, RegisteredFault> Register::faults() {
  const std::lock_guard lock(mutex_);
  return faults_;
}

void Register::keep_fault(const std::string &key, const RegisteredFault &fault) {
  const std::lock_guard lock(mutex_);
  faults_[key] = fault;
  save();
}

void Register::drop_fault(const std::string &key) {
  const std::lock_guard lock(mutex_);
  faults_.erase(key);
  save();
}

void Register::load() {
  try {
    std::ifstream stream(file_);
    const auto content = nlohmann::json::parse(stream);
    numbers_ = content.at("numbers");
    names_ = content.value("parts", names_);  // older files have none
    faults_ = content.at("faults");
  } catch (const std::exception &error) {
    numbers_.clear();
    names_.clear();
    faults_.clear();
    std::error_code ignored;
    std::filesystem::rename(file_, file_.string() + ".unreadable", ignored);
    std::cerr << "bmcsim: " << file_.string() << " is no register and was moved aside: " << error.what() << '\n';
  }
}

void Register::save() {
  if (file_.empty()) {
    return;
  }
  try {
    const std::string text =
        nlohmann::json{{"numbers", numbers_}, {"parts", names_}, {"faults", faults_}}.dump(1) + '\n';
    std::filesystem::create_directories(file_.parent_path());
    replace_file(file_, std::as_bytes(std::span(text)));
    save_failed_ = false;
  } catch (const std::exception &error) {
    if (!save_failed_) {
      std::cerr << "bmcsim: numbers and faults are not kept: " << error.what() << '\n';
    }
    save_failed_ = true;
  }
}

}  // namespace tavo::service
