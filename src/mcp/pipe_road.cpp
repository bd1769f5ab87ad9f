#include "mcp/pipe_road.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "channel/framing.h"
#include "channel/pending_replies.h"
#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "text/ascii.h"
#include "text/json_parse.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// Between two clients the pipe is away for less than a millisecond; later it is tried less often.
constexpr std::uint32_t longestPauseMs = 20;
// A page may become somewhat longer when the host writes it anew.
constexpr std::uint32_t maxAnswerBody = 4 * maxInboundBody;

constexpr std::string_view absentText =
    "The browser is not running, or the assistant's extension is not connected: open the side "
    "panel once.";
constexpr std::string_view busyText =
    "The browser is busy with calls of other programs. Try again in a moment.";
constexpr std::string_view silentText =
    "The browser did not answer in time. It may have done what was asked: look at the page before "
    "you call again, and split a long batch into several.";
constexpr std::string_view endedText =
    "The browser went away during the call. It may have done what was asked: look at the page "
    "before you call again.";
constexpr std::string_view unreadableText = "The browser's answer could not be read.";
constexpr std::string_view tooLargeText =
    "The arguments are too large: those of one call may have at most 1 MiB.";

// One for each process, whenever it runs.
std::string makeProcessPrefix() {
  std::array<unsigned char, 16> bytes = {};
  if (!randomBytes(bytes.data(), bytes.size())) return {};
  return "mcp-" + hexDigits({reinterpret_cast<const char*>(bytes.data()), bytes.size()}) + "-";
}

std::string newRequestId() {
  static const std::string& prefix = leaked<std::string>(makeProcessPrefix());
  static std::atomic<std::uint64_t> count = 0;
  return prefix.empty() ? prefix : prefix + std::to_string(++count);
}

// What is left of a time.
class Deadline {
 public:
  explicit Deadline(std::uint32_t timeoutMs) : end_(tickCountMs() + timeoutMs) {}
  std::uint32_t leftMs() const {
    return static_cast<std::uint32_t>(end_ - std::min(tickCountMs(), end_));
  }

 private:
  std::uint64_t end_;
};

enum class PipeAccess { open, absent, busy, givenUp };

struct Client {
  OwnedTurn turn;  // given back when the pipe has been closed
  OwnedStream pipe;
};

// Tries until the pipe is ours. One that is not there is believed to be absent only when it has
// been so for a while.
PipeAccess connect(const PipeUse& use, const OwnedSignal& givenUp, Client& client) {
  const Deadline patience(use.busyMs);
  const PipeCall turn = takeTurn(use.name, client.turn, givenUp, patience.leftMs());
  if (turn == PipeCall::timedOut) return PipeAccess::busy;
  Deadline presence(use.absentMs);
  for (std::uint32_t pauseMs = 0; !waitForSignal(givenUp, pauseMs);
       pauseMs = std::min(2 * pauseMs + 1, longestPauseMs)) {
    const PipeOpening opening = openPipe(use.name, client.pipe);
    if (opening == PipeOpening::open) return PipeAccess::open;
    if (opening == PipeOpening::busy) presence = Deadline(use.absentMs);
    if (presence.leftMs() == 0) return PipeAccess::absent;
    if (patience.leftMs() == 0) return PipeAccess::busy;
  }
  return PipeAccess::givenUp;
}

// Frames on an open pipe, all within one time.
class Exchange {
 public:
  Exchange(const OwnedStream& pipe, const OwnedSignal& givenUp, std::uint32_t timeoutMs)
      : pipe_(pipe), givenUp_(givenUp), deadline_(timeoutMs) {}

  PipeCall send(std::string_view body) {
    std::string frame(frameHeadBytes, '\0');
    writeFrameHead(frame.data(), body.size());
    frame += body;
    PipeCall outcome = PipeCall::done;
    for (std::size_t sent = 0, count = 0; sent < frame.size(); sent += count) {
      outcome = writePipe(pipe_, frame.data() + sent, frame.size() - sent, count, givenUp_,
                          deadline_.leftMs());
      if (outcome != PipeCall::done) break;
    }
    return outcome;
  }

  // `ended` also for a frame that is too long, or empty.
  PipeCall receive(JsonBuffer& body) {
    std::array<char, frameHeadBytes> head = {};
    const PipeCall outcome = receiveExactly(head.data(), head.size());
    if (outcome != PipeCall::done) return outcome;
    const std::size_t size = readFrameHead(head.data());
    if (size == 0 || size > maxAnswerBody) return PipeCall::ended;
    body = JsonBuffer(size);
    return receiveExactly(body.data(), size);
  }

 private:
  PipeCall receiveExactly(char* bytes, std::size_t size) {
    for (std::size_t got = 0, count = 0; got < size; got += count) {
      const PipeCall outcome =
          readPipe(pipe_, bytes + got, size - got, count, givenUp_, deadline_.leftMs());
      if (outcome != PipeCall::done) return outcome;
    }
    return PipeCall::done;
  }

  const OwnedStream& pipe_;
  const OwnedSignal& givenUp_;
  Deadline deadline_;
};

std::string_view textOf(PipeAccess connection) {
  switch (connection) {
    case PipeAccess::absent:
      return absentText;
    case PipeAccess::busy:
      return busyText;
    case PipeAccess::open:
    case PipeAccess::givenUp:
      break;
  }
  return {};
}

std::string_view textOf(PipeCall call) {
  switch (call) {
    case PipeCall::ended:
      return endedText;
    case PipeCall::timedOut:
      return silentText;
    case PipeCall::done:
    case PipeCall::givenUp:
      break;
  }
  return {};
}

struct HostRefusal {
  std::string_view code;
  std::string_view text;
};
constexpr HostRefusal hostRefusals[] = {
    {"TIMEOUT", silentText},
    {"HOST_SHUTDOWN", absentText},
    {"EXTENSION_UNAVAILABLE", absentText},
};

// Whether the answer is the host's own: that there is none of the extension.
bool isHostRefusal(JsonView answer, std::string& error) {
  if (answer["type"].text() != "error") return false;
  const JsonView failure = answer["error"];
  const auto* const known =
      std::ranges::find(hostRefusals, failure["code"].text(), &HostRefusal::code);
  error = known == std::end(hostRefusals) ? failure["message"].text() : known->text;
  return true;
}

bool exchange(std::string_view request, JsonDocument& reply, std::string& error,
              const OwnedSignal& givenUp, const PipeUse& use) {
  Client client;
  const PipeAccess connection = connect(use, givenUp, client);
  if (connection != PipeAccess::open) {
    error = textOf(connection);
    return false;
  }
  Exchange frames(client.pipe, givenUp, use.answerMs);
  JsonBuffer body;
  PipeCall outcome = frames.send(request);
  if (outcome == PipeCall::done) outcome = frames.receive(body);
  if (outcome != PipeCall::done) {
    error = textOf(outcome);
    return false;
  }
  if (readJson(std::move(body), reply, error) == ParseOutcome::ok) return true;
  if (error.empty()) error = unreadableText;
  return false;
}

}  // namespace

bool askByPipe(json command, JsonDocument& reply, std::string& error, const OwnedSignal& givenUp,
               const PipeUse& use) {
  std::string id = newRequestId();
  if (id.empty()) {
    error = "The system returns no random bytes.";
    return false;
  }
  command["requestId"] = std::move(id);
  const std::string request = dumpJson(command);
  if (request.size() > maxBrowserBody) {
    error = tooLargeText;
    return false;
  }
  return exchange(request, reply, error, givenUp, use) && !isHostRefusal(reply.root(), error);
}

bool doesPipeAnswer(std::uint32_t timeoutMs, const char* name) {
  const std::string request = dumpJson({{"requestId", ownRequestPrefix}});
  OwnedSignal never;
  JsonDocument reply;
  std::string ignored;
  return makeSignal(never) &&
         exchange(request, reply, ignored, never, {name, timeoutMs, timeoutMs, timeoutMs});
}

}  // namespace media::win::chrome_inspect
