#pragma once

#include "setup/command_line.h"

namespace media::win::chrome_inspect {

// Does what a person asked for and prints the outcome; a wrong command line is answered on standard
// error. The exit code: 0 done and well, 1 something failed or is not well, 2 a wrong command line.
int runUserCommand(const Arguments& arguments);

}  // namespace media::win::chrome_inspect
