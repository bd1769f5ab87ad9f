#include "host/stdin_reader.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "channel/envelope.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "channel/pending_replies.h"
#include "common/detached.h"
#include "host/dispatcher.h"
#include "host/host_end.h"
#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "text/json_parse.h"
#include "text/json_text.h"
#include "text/json_view.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t memoryPauseMs = 10;  // for memory to come back

// The members of a message that its refusal is made of.
std::string refusalOf(JsonView message) {
  std::string text;
  JsonObjectText kept(text);
  for (const std::string_view key : {"chromeRequestId", "id", "kind", "rpcId"}) {
    if (const JsonView member = message[key]) kept.view(key, member);
  }
  kept.end();
  return text;
}

void refuse(const std::string& refusal) {
  JsonDocument request;
  std::string ignored;
  (void)readJson(refusal, request, ignored);  // text of our own
  sendReply(request.root(), failureReply(request.root(), "host is busy"));
}

// The memory that was missing for one reply may be there for a shorter one.
void replyOrLog(const PanelMessage& message, const char* error) {
  try {
    if (!message.refusal.empty()) return refuse(message.refusal);
    sendReply(message.body.root(), failureReply(message.body.root(), error));
  } catch (const std::exception& failure) {  // not even an error reply could be made
    queueDebugLog(std::string("panel message failed: ") + failure.what(), "error");
  }
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
  message = {{}, refusalOf(message.body.root())};
  const Placed refused = work.place(message, message.refusal.size());
  if (refused == Placed::full) queueDebugLog("message dropped: too many wait", "error");
  return refused;
}

// Stores, queues or drops one message; `answer` means that the caller now has to answer it.
Next sortMessage(PanelWork& work, JsonDocument document, PanelMessage& message, std::size_t bytes) {
  if (isPanelMessage(document.root())) {
    message = {std::move(document), ""};
    if (placeMessage(work, message, bytes) == Placed::now) return Next::answer;
  } else if (isRelayReply(document.root())) {
    storeRelayReply(std::move(document), bytes);
  }
  return Next::read;
}

// Parses one frame and sorts its message. A body that is not JSON ends the reading.
Next takeFrame(PanelWork& work, JsonBuffer body, PanelMessage& message) {
  const std::size_t size = body.size();
  JsonDocument document;
  std::string error;
  switch (readJson(std::move(body), document, error)) {
    case ParseOutcome::ok:
      return sortMessage(work, std::move(document), message, size);
    case ParseOutcome::invalid:
      return Next::end;
    // The stream is in step and JavaScript did not make this: not worth the user's session.
    case ParseOutcome::overLimit:
      queueDebugLog("frame dropped: " + error, "error");
      break;
  }
  return Next::read;
}

// Has the replies that were held written, which may take its time, as if it were a message.
Next placeHeldFrames(PanelWork& work, PanelMessage& message) {
  if (!hasHeldFrames()) return Next::read;
  message = {};
  return work.place(message, 0) == Placed::now ? Next::answer : Next::read;
}

// Reads frames until one is to be answered by the caller, or reading is over. `more`: the next one
// is here already.
Next readFrames(FrameReader& input, PanelWork& work, PanelMessage& message, bool& more) {
  JsonBuffer body;
  std::string error;
  for (;;) {
    try {
      more = input.hasNext();
      if (!more && placeHeldFrames(work, message) == Next::answer) return Next::answer;
      if (!input.next(body, error)) return Next::end;
      more = input.hasNext();
      const Next next = takeFrame(work, std::move(body), message);
      if (next == Next::answer) return next;
      if (next == Next::end) input.stop();     // replies may be held
    } catch (const std::exception& failure) {  // out of memory for this one
      queueDebugLog(std::string("frame dropped: ") + failure.what(), "error");
      sleepMs(memoryPauseMs);
    }
  }
}

[[noreturn]] void readToTheEnd(FrameReader& input, PanelWork& work) {
  while (readAndAnswer(input, work)) {
  }
  endHost(work);
}

}  // namespace

void answerMessage(const PanelMessage& message) {
  try {
    if (!message.refusal.empty()) return refuse(message.refusal);
    if (message.body.root()) answerPanelMessage(message.body.root());
  } catch (const std::exception& failure) {  // before its reply went out
    replyOrLog(message, failure.what());
  }
}

bool readAndAnswer(FrameReader& input, PanelWork& work) {
  const std::uint64_t number = work.becomeReader();
  PanelMessage message;
  bool isReader = true;
  bool more = false;
  while (isReader && readFrames(input, work, message, more) == Next::answer) {
    do {
      answerMessage(message);
      // As a part of the answer: should nobody take it, the other thread goes on reading.
      if (!std::exchange(more, false) || !work.isReader(number)) (void)writeHeldFrames();
    } while (work.next(message));
    isReader = work.isReader(number);
  }
  return !isReader;
}

void startStdinReader() {
  PanelWork& work = leaked<PanelWork>();
  FrameReader& input = leaked<FrameReader>(standardInput());
  const auto read = [&input, &work] { readToTheEnd(input, work); };
  if (!runDetached("stdin reader", read)) throw std::runtime_error("the system has no thread");
  // Without a second thread, nothing is read while a message is answered.
  (void)runDetached("panel messages", read);
}

}  // namespace media::win::chrome_inspect
