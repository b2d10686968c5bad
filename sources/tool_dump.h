// A dump that the platform's query tool writes to a file when a table asks for it.
#pragma once

#include "sources/dump.h"
#include "sources/retries.h"

namespace tavo {

// The directory of the query tool and its formatter, for dumps that do not leave it to the shell to find them.
inline constexpr char platform_tools[] = "/usr/local/bin/";

// One such file, and whether what it holds still counts. For one thread at a time: the table's lock guards it.
class ToolDump {
 public:
  // `tools` stands before the names of the two tools; when it is empty, the shell's search path decides.
  explicit constexpr ToolDump(const char *path, const char *tools = "") : path_(path), tools_(tools) {}

  // Has the tool write the dump anew for the next read().
  void forget() { is_written_ = false; }
  bool is_written() const { return is_written_; }

  // The dump of `source`, the tool's name for the data, which the tool writes first unless it has run since forget().
  // A tool that fails has run, too: the file shows that, and usually holds nothing. Only when `source` is too long for
  // a command does nothing run, and then there is no dump.
  Dump read(const char *source);
  // The dump as it stands in the file.
  Dump read_without_tool() const { return Dump(path_); }

  // Calls `lookup`, which reads the dump, until it gives true; see try_repeatedly. Each failed try, the last one too,
  // ends with forget(), so that the next read runs the tool again.
  template <class Lookup>
  bool await(Lookup lookup, int tries = default_tries) {
    const auto attempt = [&] {
      const bool found = lookup();
      if (!found) {
        forget();
      }
      return found;
    };
    return try_repeatedly(attempt, tries);
  }

 private:
  const char *path_;
  const char *tools_;
  bool is_written_ = false;
};

}  // namespace tavo
