#include "core/text.h"

#include <cstdarg>
#include <cstdio>

namespace tavo {

void format_text(char *to, std::size_t size, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(to, size, format, arguments);
  va_end(arguments);
}

}  // namespace tavo
