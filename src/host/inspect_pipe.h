#pragma once

#include <cstdint>

#include "common/product_names.h"

namespace media::win::chrome_inspect {

// Under what name, and with how much patience, local programs are served.
struct InspectPipe {
  const char* name = inspectPipeName;
  std::uint32_t requestMs = 30000;  // for a client's whole request
  std::uint32_t replyMs = 15000;    // for the extension's answer to it
  std::uint32_t answerMs = 30000;   // for the client to take its answer
  std::uint32_t refusalMs = 1000;   // the same when its request could not be read
};

// Serves local programs, one after another: takes one frame, forwards it to the extension, and
// returns to it the extension's answer with the same "requestId", or an error reply; a client that
// leaves meanwhile is let go of within half a second. Returns when
// `hostRunning` is false between two clients, or when the pipe cannot be created, which is when
// another host has it. Takes the calling thread; whatever a client does, only its own connection
// ends.
void runInspectPipeServer(const InspectPipe& settings = {});

}  // namespace media::win::chrome_inspect
