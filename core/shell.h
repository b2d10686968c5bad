// Runs the platform's tools through the shell.
#pragma once

#include <cstddef>

namespace tavo {

// Runs a command and waits for its end. How it ended is of no interest: what it should have written shows that.
void run_in_shell(const char *command);

// Runs a command and reads the first line that it prints, at most `longest` characters, the newline among them. The
// last character read, normally the newline, is dropped; the rest and a NUL go to `out`, which holds `longest` octets.
// False, and `out` left alone, when the command cannot be started or prints nothing. Returns once the command has
// ended; what it prints after that line has no reader.
bool first_line_of(const char *command, std::size_t longest, char *out);

}  // namespace tavo
