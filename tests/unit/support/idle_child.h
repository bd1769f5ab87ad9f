#pragma once

#include "platform/process.h"

namespace media::win::chrome_inspect {

// A child process that runs, and stays until it is ended.
OwnedProcess idleChild();

}  // namespace media::win::chrome_inspect
