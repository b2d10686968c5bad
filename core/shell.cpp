#include "core/shell.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace tavo {
namespace {

struct CloseProcess {
  void operator()(FILE *process) const { ::pclose(process); }
};

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

}  // namespace

void run_in_shell(const char *command) {
  static_cast<void>(std::system(command));
}

bool first_line_of(const char *command, std::size_t longest, char *out) {
  // "e": a tool that another thread starts meanwhile must not keep this pipe open.
  const std::unique_ptr<FILE, CloseProcess> output(::popen(command, "re"));
  if (output == nullptr) {
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

}  // namespace tavo
