// Runs the platform's tools through the shell.
#pragma once

#include <cstddef>

namespace tavo {

// Characters of a command that is made from parts. One that would be longer never runs, because half a command is
// another command: it is logged as an error, and is like a tool that fails.
inline constexpr std::size_t longest_command = 511;

// Runs a command, made as by printf, and waits for its end. False when the command is too long to run; otherwise the
// exit status is ignored: what the command should have written shows how it went.
[[gnu::format(printf, 1, 2)]] bool run_in_shell(const char *format, ...);

// Runs a command and reads the first line that it prints, at most `longest` characters, the newline among them. The
// last character read, normally the newline, is dropped; the rest and a NUL go to `out`, which holds `longest` octets.
// False, and `out` left alone, when the command cannot be started or prints nothing. Returns once the command has
// ended; one that goes on printing after that line is ended by SIGPIPE, unless the daemon ignores it.
bool first_line_of(const char *command, std::size_t longest, char *out);
// The same for a command of at most `most` characters, and of at most longest_command, made as by printf. False, too,
// when it is too long to run.
[[gnu::format(printf, 4, 5)]] bool first_line_of(std::size_t most, std::size_t longest, char *out, const char *format,
                                                 ...);

}  // namespace tavo
