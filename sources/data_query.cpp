#include "sources/data_query.h"

#include <cstddef>
#include <string_view>

#include "core/shell.h"
#include "core/text.h"

namespace tavo {
namespace {

constexpr std::size_t longest_line = 127;

constexpr char tool_format[] = "datactl get=%s | flatkv | grep %s | awk -F\"%s\" '{print $2}'";
constexpr char counting_format[] =
    "datactl get=%s | flatkv | grep %s | awk -F\"%s\" '{print $2}' | uniq -c | awk '{ print $1\" \"$2 }'";
constexpr char fru_format[] = "ipmitool -I bmc %s 2> /dev/null | grep \"%s\" | awk -F\"%s\" ' NR<2 { print $2 } '";

bool run(const char *format, const char *source, const char *key, const char *separator, char *out) {
  char command[128];
  format_text(command, format, source, key, separator);
  return first_line_of(command, longest_line, out);
}

}  // namespace

bool query_value(const char *source, const char *key, const char *separator, char *out) {
  const bool asks_fru = std::string_view(source) == "fru" && std::string_view(key) == "Product Serial";
  return run(asks_fru ? fru_format : tool_format, source, key, separator, out);
}

bool query_counted_value(const char *source, const char *key, const char *separator, char *out) {
  return run(counting_format, source, key, separator, out);
}

}  // namespace tavo
