// Runs the platform's tools through the shell.
#pragma once

#include <cstddef>

namespace tavo {

// A shell command made from parts. One that is too long never runs, because half a command is another command; it is
// logged as an error when it is made, and then behaves like a tool that fails.
class ShellCommand {
 public:
  // Characters of a command for which nothing else is said.
  static constexpr std::size_t longest = 511;

  // As printf.
  [[gnu::format(printf, 2, 3)]] explicit ShellCommand(const char *format, ...);
  // For a command of at most `most` characters; ShellCommand::longest bounds this, too.
  [[gnu::format(printf, 3, 4)]] ShellCommand(std::size_t most, const char *format, ...);

  bool fits() const { return fits_; }
  // The command, cut when it does not fit.
  const char *text() const { return text_; }

 private:
  char text_[longest + 1];
  bool fits_;
};

// Runs a command and waits for its end. False when the command is too long to run; otherwise the exit status is
// ignored: what the command should have written shows how it went.
bool run_in_shell(const ShellCommand &command);

// Runs a command and reads the first line that it prints, at most `longest` characters, the newline among them. The
// last character read, normally the newline, is dropped; the rest and a NUL go to `out`, which holds `longest` octets.
// False, and `out` left alone, when the command cannot be started or prints nothing. Returns once the command has
// ended; one that goes on printing after that line is ended by SIGPIPE, unless the daemon ignores it.
bool first_line_of(const char *command, std::size_t longest, char *out);
// The same; false, too, when the command is too long to run.
bool first_line_of(const ShellCommand &command, std::size_t longest, char *out);

}  // namespace tavo
