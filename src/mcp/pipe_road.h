#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "common/product_names.h"
#include "platform/pipe_client.h"
#include "text/json_view.h"

// The road to the extension from outside of its host: by the inspect pipe of the host that runs.
namespace media::win::chrome_inspect {

// Under what name, and with how much patience, the pipe is used.
struct PipeUse {
  const char* name = inspectPipeName;
  std::uint32_t busyMs = 25000;    // for our turn, as the host serves one client at a time
  std::uint32_t absentMs = 1000;   // between two clients there is no pipe for a moment
  std::uint32_t answerMs = 35000;  // for the answer; the host itself waits 15 s for the extension
};

// Sends `command` with a "requestId" that no other program and no other time has, and waits for the
// answer. False when there is none: `error` says so in words for whoever asked, and is empty when
// `givenUp` was raised. Threads: one at a time, so that a client's calls follow each other.
bool askByPipe(nlohmann::json command, JsonDocument& reply, std::string& error,
               const OwnedSignal& givenUp, const PipeUse& use = {});

// Whether a host answers on the pipe, within `timeoutMs`, with a request that it refuses without
// passing it on.
bool doesPipeAnswer(std::uint32_t timeoutMs, const char* name = inspectPipeName);

}  // namespace media::win::chrome_inspect
