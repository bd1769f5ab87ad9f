#include "host/stdin_reader.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "agent/agent_end.h"
#include "channel/envelope.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "channel/pending_replies.h"
#include "common/detached.h"
#include "host/dispatcher.h"
#include "host/host_running.h"
#include "platform/process_control.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t roomWaitMs = 1000;

// What had arrived before the end of input still gets its replies, within this time.
constexpr std::uint32_t lastRepliesMs = 500;

void answerQuietly(const json& message) {
  try {
    answerPanelMessage(message);
  } catch (const std::exception& failure) {  // not even an error reply could be made
    queueDebugLog(std::string("panel message failed: ") + failure.what(), "error");
  }
}

void storeRelayReply(json message, std::size_t bytes) {
  const std::string id(lenientText(message, "requestId"));
  storeReply(id, std::move(message), bytes);
}

enum class Next { read, answer, end };

// Stores, queues or drops one message; `answer` means that the caller now has to answer it.
Next sortMessage(PanelWork& work, json& message, std::size_t bytes) {
  if (isPanelMessage(message)) {
    const Placed placed = work.place(message, bytes, roomWaitMs);
    if (placed == Placed::now) return Next::answer;
    if (placed == Placed::full) sendReply(message, failureReply(message, "host is busy"));
  } else if (isRelayReply(message)) {
    storeRelayReply(std::move(message), bytes);
  }
  return Next::read;
}

// Parses one frame and sorts its message. A body that is not JSON ends the reading.
Next takeFrame(PanelWork& work, const std::string& body, json& message) {
  std::string error;
  switch (parseJson(body, message, error)) {
    case ParseOutcome::ok:
      return sortMessage(work, message, body.size());
    case ParseOutcome::invalid:
      return Next::end;
    // The stream is in step and JavaScript did not make this: not worth the user's session.
    case ParseOutcome::overLimit:
      queueDebugLog("frame dropped: " + error, "error");
      break;
  }
  return Next::read;
}

// Reads frames until one is to be answered by the caller, or reading is over.
Next readFrames(StreamId input, PanelWork& work, json& message) {
  std::string body;
  std::string error;
  while (readFrameBody(input, body, error)) {
    try {
      const Next next = takeFrame(work, body, message);
      if (next != Next::read) return next;
    } catch (const std::exception& failure) {  // out of memory for this one
      queueDebugLog(std::string("frame dropped: ") + failure.what(), "error");
    }
  }
  return Next::end;
}

[[noreturn]] void endHost(PanelWork& work) {
  cancelAllAgentRequests();
  (void)work.waitUntilDone(lastRepliesMs);
  hostRunning = false;
  wakeReplyWaiters();
  exitProcess(0);
}

[[noreturn]] void readToTheEnd(PanelWork& work) {
  while (readAndAnswer(standardInput(), work)) {
  }
  endHost(work);
}

}  // namespace

bool readAndAnswer(StreamId input, PanelWork& work) {
  const std::uint64_t number = work.becomeReader();
  json message;
  do {
    if (readFrames(input, work, message) == Next::end) return false;
    do {
      answerQuietly(message);
    } while (work.next(message));
  } while (work.isReader(number));
  return true;
}

void runStdinReader() {
  PanelWork& work = leaked<PanelWork>();
  // Without a second thread, nothing is read while a message is answered.
  (void)runDetached("panel messages", [&work] { readToTheEnd(work); });
  readToTheEnd(work);
}

}  // namespace media::win::chrome_inspect
