#include "sources/data_query.h"

#include <string_view>

#include "core/shell.h"

namespace tavo {
namespace {

// Part of what callers rely on: a query that needs more has never worked.
constexpr std::size_t longest_query = 127;

}  // namespace

bool query_value(const char *source, const char *key, const char *separator, char *out) {
  if (std::string_view(source) == "fru" && std::string_view(key) == "Product Serial") {
    return first_line_of(longest_query, longest_query_line, out,
                         "ipmitool -I bmc %s 2> /dev/null | grep \"%s\" | awk -F\"%s\" ' NR<2 { print $2 } '", source,
                         key, separator);
  }
  return first_line_of(longest_query, longest_query_line, out,
                       "datactl get=%s | flatkv | grep %s | awk -F\"%s\" '{print $2}'", source, key, separator);
}

bool query_counted_value(const char *source, const char *key, const char *separator, char *out) {
  return first_line_of(
      longest_query, longest_query_line, out,
      "datactl get=%s | flatkv | grep %s | awk -F\"%s\" '{print $2}' | uniq -c | awk '{ print $1\" \"$2 }'", source,
      key, separator);
}

}  // namespace tavo
