// The controller as the fuzzer wants it: the platform's libraries answer from the input, and the module's files, tools,
// sockets, pauses and log lines lead here instead of to the system.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/harness/door.h"

namespace tavo::fuzz {

// One at a time, for the length of an input. When the input is used up, every call fails or ends what it serves. At the
// end every descriptor must be closed that was opened meanwhile.
class Platform {
 public:
  explicit Platform(Octets input);
  ~Platform();
  Platform(const Platform &) = delete;
  Platform &operator=(const Platform &) = delete;

  // What is left of the input.
  FuzzedDataProvider answers;

  // The files below /var, by path. A path that is missing here does not exist.
  std::map<std::string, std::string, std::less<>> files;

  // What the commands print that the module reads through a pipe: one after the other, and then nothing.
  std::vector<std::string> printed;

  // The next broadcast of the fault engine: what listen_to_fe_broadcaster returns.
  std::function<int(std::byte *record)> listen;
  // The fault engine's table: its count, and what get_fe_table returns.
  std::function<int()> fault_count;
  std::function<int(std::byte *records, int start, int count)> read_faults;

  // Called when a thread of the module asks for what the input no longer has.
  std::function<void()> at_end;

  // Called before the module waits in select().
  std::function<void()> before_select;

  // Fills the record with zeros, with text that has no NUL, or from the input, as the input says.
  void fill(void *record, std::size_t size);
  // Nonzero if the input wants this call to fail.
  int failure();
  // An unused descriptor, or -1 with errno set, as the input says.
  int descriptor();

  // What the next command prints; empty: it cannot be run.
  std::optional<std::string> next_output();

 private:
  std::size_t commands_ = 0;
  const std::array<int, 2> free_descriptors_;  // the lowest one, and the lowest that select() cannot wait for
};

// The one that exists, or null.
Platform *platform();

}  // namespace tavo::fuzz
