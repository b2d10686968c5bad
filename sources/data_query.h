// One value straight from the platform's data-query tool, through the shell.
#pragma once

#include <cstddef>

namespace tavo {

// Characters that are read of a line that a query prints, its newline among them.
inline constexpr std::size_t longest_query_line = 127;

// The text behind `separator`, as awk cuts it, in the first line of the tool's output for `source` that holds `key`.
// The source "fru" with the key "Product Serial" asks ipmitool instead. Writes at most 126 characters and a NUL to
// `out`; false, and `out` left alone, when nothing is printed or the command would be longer than 127 characters.
bool query_value(const char *source, const char *key, const char *separator, char *out);

// The same for a key that each unit has, preceded by the number of units in a row that have the first value: "2 8".
bool query_counted_value(const char *source, const char *key, const char *separator, char *out);

}  // namespace tavo
