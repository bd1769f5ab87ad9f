#pragma once

#include "setup/command_line.h"

namespace media::win::chrome_inspect {

// What the program could not do, or a problem that the doctor found.
inline constexpr int exitFailure = 1;

// Performs a person's command and prints the outcome on standard output; what is wrong with a
// command line goes to standard error. Without arguments, and on a console that closes with this
// process, waits for a key. Returns the exit code: 0 success, `exitFailure`, or 2 for
// a wrong command line.
int runUserCommand(const Arguments& arguments);

}  // namespace media::win::chrome_inspect
