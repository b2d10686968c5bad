// One value straight from the platform's data-query tool, through the shell.
#pragma once

namespace tavo {

// What stands behind `separator` in the first line of the tool's output for `source` that holds `key`, as awk cuts it.
// The source "fru" with the key "Product Serial" asks ipmitool instead. Writes at most 126 characters and a NUL to
// `out`; false, and `out` left alone, when nothing is printed.
bool query_value(const char *source, const char *key, const char *separator, char *out);

// The same for a key that each unit has, with how many units in a row have the first value in front: "2 8".
bool query_counted_value(const char *source, const char *key, const char *separator, char *out);

}  // namespace tavo
