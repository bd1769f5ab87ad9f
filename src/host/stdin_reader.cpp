#include "host/stdin_reader.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "channel/envelope.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "channel/pending_replies.h"
#include "common/detached.h"
#include "host/dispatcher.h"
#include "host/host_end.h"
#include "text/json_parse.h"
#include "text/json_view.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The members of a message that its refusal is made of.
std::string refusalOf(const json& message) {
  json kept = json::object();
  for (const char* key : {"kind", "chromeRequestId", "rpcId", "id"}) {
    const auto member = message.find(key);
    if (member != message.end()) kept[key] = *member;
  }
  return dumpJson(kept);
}

void refuse(const std::string& refusal) {
  json request;
  std::string ignored;
  (void)parseJson(refusal, request, ignored);  // text of our own
  sendReply(request, failureReply(request, "host is busy"));
}

void storeRelayReply(JsonDocument message, std::size_t bytes) {
  const std::string id(message.root()["requestId"].text());
  storeReply(id, std::move(message), bytes);
}

enum class Next { read, answer, end };

// Has a panel message answered, or refused when too much waits. Neither waits nor writes, so that
// whatever comes behind it is seen.
Placed placeMessage(PanelWork& work, PanelMessage& message, std::size_t bytes) {
  const Placed placed = work.place(message, bytes);
  if (placed != Placed::full) return placed;
  message = {nullptr, refusalOf(message.body)};
  const Placed refused = work.place(message, message.refusal.size());
  if (refused == Placed::full) queueDebugLog("message dropped: too many wait", "error");
  return refused;
}

// Stores, queues or drops one message; `answer` means that the caller now has to answer it.
Next sortMessage(PanelWork& work, JsonDocument document, PanelMessage& message, std::size_t bytes) {
  if (isPanelMessage(document.root())) {
    message = {document.root().toValue(), ""};
    if (placeMessage(work, message, bytes) == Placed::now) return Next::answer;
  } else if (isRelayReply(document.root())) {
    storeRelayReply(std::move(document), bytes);
  }
  return Next::read;
}

// Parses one frame and sorts its message. A body that is not JSON ends the reading.
Next takeFrame(PanelWork& work, const std::string& body, PanelMessage& message) {
  JsonDocument document;
  std::string error;
  switch (readJson(body, document, error)) {
    case ParseOutcome::ok:
      return sortMessage(work, std::move(document), message, body.size());
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
Next readFrames(StreamId input, PanelWork& work, PanelMessage& message) {
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

[[noreturn]] void readToTheEnd(PanelWork& work) {
  while (readAndAnswer(standardInput(), work)) {
  }
  endHost(work);
}

}  // namespace

void answerMessage(const PanelMessage& message) {
  try {
    if (!message.refusal.empty()) return refuse(message.refusal);
    answerPanelMessage(message.body);
  } catch (const std::exception& failure) {  // not even an error reply could be made
    queueDebugLog(std::string("panel message failed: ") + failure.what(), "error");
  }
}

bool readAndAnswer(StreamId input, PanelWork& work) {
  const std::uint64_t number = work.becomeReader();
  PanelMessage message;
  do {
    if (readFrames(input, work, message) == Next::end) return false;
    do {
      answerMessage(message);
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
