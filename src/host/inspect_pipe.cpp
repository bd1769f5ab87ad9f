#include "host/inspect_pipe.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "channel/envelope.h"
#include "channel/framing.h"
#include "channel/pending_replies.h"
#include "host/host_running.h"
#include "host/pipe_watchdog.h"
#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/named_pipe.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_view.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t clientLookMs = 250;  // how often a client that waits is looked after
constexpr int mostTries = 50;                // of having the pipe again
constexpr std::uint32_t pauseMs = 100;
constexpr std::size_t maxKeptBytes = 4 * 1024 * 1024;
constexpr std::string_view unreadable = "Failed to read pipe request";

std::string refusal(std::string_view id, std::string_view code, std::string_view message) {
  return dumpJson(pipeErrorReply(id, code, message));
}

// Its memory is used again for the next client, as memory that comes anew costs as much as a page.
struct Answer {
  std::string body;
  std::uint32_t patienceMs = 0;  // how long the client has for taking it
  JsonDocument source;           // what it was made of: freed when that delays nobody
};

// Waits for the answer, and no longer than the client does: while nobody takes it, others wait.
bool waitForAnswer(StreamId pipe, const std::string& id, std::uint32_t replyMs,
                   JsonDocument& reply) {
  const std::uint64_t end = tickCountMs() + replyMs;
  for (std::uint64_t now = tickCountMs(); now < end; now = tickCountMs()) {
    const auto waitMs =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(end - now, clientLookMs));
    if (waitForReply(id, waitMs, reply)) return true;
    if (isPipeClientGone(pipe)) break;
  }
  return false;
}

// Writes the extension's answer to `answer`, or returns why there is none.
std::string relay(StreamId pipe, const json& request, std::uint32_t replyMs, Answer& answer) {
  const std::string id(lenientText(request, "requestId"));
  // Its answer would go to the host's own call of that id.
  if (id.starts_with(ownRequestPrefix)) {
    return refusal(id, "INVALID_REQUEST", "requestId begins as the host's own do");
  }
  if (!hostRunning) return refusal(id, "HOST_SHUTDOWN", "Native host is shutting down");
  if (!writeMessage(request)) {
    return refusal(id, "EXTENSION_UNAVAILABLE", "Chrome extension channel is unavailable");
  }
  // An answer to a request without an id could not be recognised: nobody waits for it.
  if (id.empty() || !waitForAnswer(pipe, id, replyMs, answer.source)) {
    return refusal(id, "TIMEOUT", "Extension did not respond in time");
  }
  answer.body.clear();
  answer.source.root().appendTo(answer.body);
  return {};
}

void answerTo(StreamId pipe, PipeWatchdog& watchdog, const InspectPipe& settings, Answer& answer) {
  json request;
  std::string error;
  bool whole = false;
  {
    const PipeWatchdog::Guard guard(watchdog, pipe, settings.requestMs);
    whole = FrameReader(pipe).next(request, error);
  }
  answer.patienceMs = whole ? settings.answerMs : settings.refusalMs;
  std::string refused = whole ? relay(pipe, request, settings.replyMs, answer)
                              : refusal("", "INVALID_REQUEST", error.empty() ? unreadable : error);
  if (!refused.empty()) answer.body = std::move(refused);
}

// The client gets an answer also when its request makes something throw, such as memory that runs
// out.
void answerOrRefuse(StreamId pipe, PipeWatchdog& watchdog, const InspectPipe& settings,
                    Answer& answer) {
  try {
    answerTo(pipe, watchdog, settings, answer);
  } catch (const std::exception&) {
    answer.body = refusal("", "INVALID_REQUEST", unreadable);
    answer.patienceMs = settings.refusalMs;
  }
}

void writeAnswer(StreamId pipe, std::string_view body) {
  (void)writeFrame(pipe, body);  // a client that has gone needs no answer
  flushPipe(pipe);
}

void serveClient(StreamId pipe, PipeWatchdog& watchdog, const InspectPipe& settings,
                 Answer& answer) {
  try {
    answerOrRefuse(pipe, watchdog, settings, answer);
    const PipeWatchdog::Guard guard(watchdog, pipe, answer.patienceMs);
    writeAnswer(pipe, answer.body);
  } catch (const std::exception&) {
    // No memory even for that: the client sees its connection end.
  }
  disconnectPipe(pipe);
  answer.source = {};
  if (answer.body.capacity() > maxKeptBytes) answer.body = {};
}

}  // namespace

void runInspectPipeServer(const InspectPipe& settings) {
  PipeWatchdog watchdog;
  Answer answer;
  int triesLeft = 1;  // who has never had the pipe leaves it to whoever has it
  while (hostRunning && triesLeft > 0) {
    OwnedStream pipe;
    if (createPipeInstance(settings.name, pipe)) {
      triesLeft = mostTries;
      if (connectPipeClient(pipe)) serveClient(pipe.get(), watchdog, settings, answer);
    } else if (--triesLeft > 0) {
      sleepMs(pauseMs);
    }
  }
}

}  // namespace media::win::chrome_inspect
