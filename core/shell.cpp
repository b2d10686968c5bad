#include "core/shell.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "core/zeroed.h"

namespace tavo {
namespace {

struct CloseProcess {
  void operator()(FILE *process) const { ::pclose(process); }
};

// After a command that could not be run. errno was 0 before.
void count_if_out_of_memory() {
  if (errno == ENOMEM) {
    count_failed_allocation();
  }
}

// The next character, or EOF. A signal does not end the output.
int next_character(FILE *output) {
  while (true) {
    const int character = std::fgetc(output);
    if (character != EOF || std::ferror(output) == 0 || errno != EINTR) {
      return character;
    }
    std::clearerr(output);
  }
}

// Formats a command into `text`. False when it is longer than `most` characters.
bool format_command(char (&text)[longest_command + 1], std::size_t most, const char *format, va_list arguments) {
  const int length = std::vsnprintf(text, most + 1, format, arguments);
  if (length >= 0 && static_cast<std::size_t>(length) <= most) {
    return true;
  }
  snmp_log(LOG_ERR, "Not run: a shell command may have %zu characters, this one has %d: %s...\n", most, length, text);
  return false;
}

}  // namespace

bool run_in_shell(const char *format, ...) {
  char command[longest_command + 1];
  va_list arguments;
  va_start(arguments, format);
  const bool fits = format_command(command, longest_command, format, arguments);
  va_end(arguments);
  if (!fits) {
    return false;
  }
  errno = 0;
  if (std::system(command) == -1) {
    count_if_out_of_memory();
  }
  return true;
}

bool first_line_of(const char *command, std::size_t longest, char *out) {
  // "e": a tool that another thread starts meanwhile must not keep this pipe open.
  errno = 0;
  const std::unique_ptr<FILE, CloseProcess> output(::popen(command, "re"));
  if (output == nullptr) {
    count_if_out_of_memory();
    return false;
  }
  std::size_t length = 0;
  int last = EOF;
  while (length < longest) {
    const int character = next_character(output.get());
    if (character == EOF) {
      break;
    }
    if (length > 0) {
      out[length - 1] = static_cast<char>(last);
    }
    last = character;
    ++length;
    if (character == '\n') {
      break;
    }
  }
  if (length == 0) {
    return false;
  }
  out[length - 1] = '\0';
  return true;
}

bool first_line_of(std::size_t most, std::size_t longest, char *out, const char *format, ...) {
  char command[longest_command + 1];
  va_list arguments;
  va_start(arguments, format);
  const bool fits = format_command(command, std::min(most, longest_command), format, arguments);
  va_end(arguments);
  return fits && first_line_of(command, longest, out);
}

}  // namespace tavo
