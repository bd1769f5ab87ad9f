#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "mcp/json_rpc.h"
#include "mcp/session.h"
#include "platform/pipe_client.h"
#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Runs the calls of one client, one after another, on a thread of its own, and reports the progress
// of those that asked for it while they wait. Never destroyed: its threads use it. Threads: any.
class CallQueue {
 public:
  // Returns the reply to the call, on the thread of the calls. Comes back soon once `givenUp` is
  // raised; what it then returns is dropped. What it leaves in `answer` is freed when the reply has
  // been sent.
  using Run = std::function<std::string(const ToolCall& call, const OwnedSignal& givenUp,
                                        JsonDocument& answer)>;

  CallQueue(Run run, Replies::Send send, std::uint32_t progressMs = 5000);
  CallQueue(const CallQueue&) = delete;
  CallQueue& operator=(const CallQueue&) = delete;

  // Answered at once, as a failure, when the system has no thread for it.
  void add(ToolCall call);

  // Gives up the calls of this request; they are not answered.
  void cancel(const std::string& id);

 private:
  struct State;
  State& state_;
};

}  // namespace media::win::chrome_inspect
