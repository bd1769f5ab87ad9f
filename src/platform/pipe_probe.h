#pragma once

#include <string>

namespace media::win::chrome_inspect {

enum class PipeState { absent, listening, busy, unknown };

// Whether a named pipe exists and, if so, whether its server waits for a client, without becoming
// one (WaitNamedPipeA). Takes a few milliseconds at most. POSIX: always `unknown`.
PipeState probePipe(const std::string& name);

}  // namespace media::win::chrome_inspect
