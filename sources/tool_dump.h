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

  // Dump::value, count and sum of a key and its separator in what read() gives. The figures are written as decimal
  // numbers. `out` holds dump_value_size octets; false, and `out` left alone, when there is no value or no dump.
  bool value(const char *source, const char *key, const char *separator, int n, char *out);
  bool count(const char *source, const char *key, const char *separator, char *out);
  bool sum(const char *source, const char *key, const char *separator, char *out);
  // Dump::value in the dump as it stands in the file.
  bool value_without_tool(const char *key, const char *separator, int n, char *out) const;

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
  // A figure of the dump, written to `out`.
  bool write_figure(const char *source, const Needle &needle,
                    std::int32_t (*figure)(const Dump &dump, const Needle &of), char *out);

  const char *path_;
  const char *tools_;
  bool is_written_ = false;
};

}  // namespace tavo
