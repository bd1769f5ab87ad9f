#include "agent/agent_request.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/http_client.h"
#include "text/url_escape.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int longestSpeechMs = 600000;

const char* openErrorText(HttpOpenResult result) {
  switch (result) {
    case HttpOpenResult::ok:
      return "";
    case HttpOpenResult::sessionFailed:
      return "winhttp open failed";
    case HttpOpenResult::connectFailed:
      return "winhttp connect failed";
    case HttpOpenResult::requestFailed:
      break;
  }
  return "winhttp request failed";
}

HttpTimeouts streamTimeouts() {
  HttpTimeouts timeouts;
  timeouts.receiveMs = 0;
  return timeouts;
}

HttpTimeouts answerTimeouts(const AnswerLimits& limits) {
  HttpTimeouts timeouts;
  if (limits.totalMs == 0) return timeouts;
  const auto most = static_cast<int>(std::min<std::uint32_t>(limits.totalMs, 60000));
  for (int* limit : {&timeouts.connectMs, &timeouts.sendMs, &timeouts.receiveMs}) {
    *limit = std::min(*limit, most);
  }
  return timeouts;
}

// Whether an answer that is so large by now, and has taken so long, is past its limits.
std::function<bool(std::size_t bodySize)> pastLimits(const AnswerLimits& limits) {
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(limits.totalMs);
  return [limits, deadline](std::size_t bodySize) {
    const bool isLate = limits.totalMs != 0 && SteadyClock::now() > deadline;
    return isLate || bodySize > limits.maxBodyBytes;
  };
}

// Keeps a request in its slot for as long as it runs, however that ends.
class Published {
 public:
  Published(const RequestPlace& place, std::shared_ptr<HttpExchange> request)
      : slot_(place.slot), request_(std::move(request)), ok_(publishRequest(place, request_)) {}
  ~Published() { takeBackRequest(slot_, request_); }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;
  bool ok() const { return ok_; }

 private:
  CancelSlot slot_;
  std::shared_ptr<HttpExchange> request_;
  bool ok_;
};

struct Call {
  std::uint16_t port;
  const std::wstring& verb;
  const std::wstring& path;
  std::string_view body;
};

// What differs between the kinds of requests.
struct Terms {
  RequestPlace place;  // where another thread finds the request to abort it
  // Whether it was cancelled, which explains why no response header came.
  std::function<bool()> isCancelled;
  // The cancellation is that of its owner: it also keeps the request from being sent, and explains
  // why the body broke off.
  bool hasOwner;
  HttpTimeouts timeouts;
  ChunkSink sink;                                   // empty: the body is collected
  std::function<bool(std::size_t bodySize)> stops;  // asked before each read; empty: never
};

// The steps after the request has been published.
void runPublished(HttpExchange& request, std::string_view body, const Terms& terms,
                  AgentResponse& response) {
  response.wasSent = request.send(body);
  if (!response.wasSent || !request.receive()) {
    response.error = terms.isCancelled() ? "cancelled" : "agent request failed";
    return;
  }
  response.status = request.status();
  const auto shouldStop = [&] { return terms.stops && terms.stops(response.body.size()); };
  if (readAgentBody(request, response.body, terms.sink, shouldStop)) return;
  const bool wasCancelled = terms.hasOwner && terms.isCancelled();
  response.error = wasCancelled ? "cancelled" : "agent response truncated";
}

AgentResponse runRequest(const Call& call, const Terms& terms) {
  AgentResponse response;
  std::shared_ptr<HttpExchange> request;
  const std::wstring target = toWide(escapeTarget(toUtf8(call.path)));
  const HttpOpenResult opened =
      openHttpExchange(call.port, call.verb, target, terms.timeouts, request);
  if (opened != HttpOpenResult::ok) {
    response.error = openErrorText(opened);
    return response;
  }
  const Published published(terms.place, request);
  // Asked once it is published: whoever cancels says so first and then takes what is published.
  if (!published.ok() || (terms.hasOwner && terms.isCancelled())) {
    response.error = "cancelled";
    return response;
  }
  runPublished(*request, call.body, terms, response);
  return response;
}

}  // namespace

AgentResponse agentRequest(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                           std::string_view body, const AnswerLimits& limits) {
  return runRequest({port, verb, path, body}, {{CancelSlot::plain},
                                               cancelRequested,
                                               false,
                                               answerTimeouts(limits),
                                               {},
                                               pastLimits(limits)});
}

AgentResponse agentSpeech(std::uint16_t port, std::string_view body,
                          const std::function<bool()>& isStopped) {
  HttpTimeouts timeouts;
  timeouts.receiveMs = longestSpeechMs;
  return runRequest({port, L"POST", L"/v1/speak", body},
                    {{CancelSlot::speech},
                     isStopped,
                     true,
                     timeouts,
                     {},
                     pastLimits({.totalMs = static_cast<std::uint32_t>(longestSpeechMs)})});
}

AgentResponse agentTurnRequest(std::uint16_t port, const std::wstring& verb,
                               const std::wstring& path, std::string_view body,
                               const RunningTurn& turn) {
  const AnswerLimits limits;
  return runRequest({port, verb, path, body}, {{CancelSlot::turn},
                                               [&turn] { return turn.stopped(); },
                                               true,
                                               answerTimeouts(limits),
                                               {},
                                               pastLimits(limits)});
}

AgentResponse agentTurnStream(std::uint16_t port, const std::wstring& path, std::string_view body,
                              const RunningTurn& turn, const ChunkSink& sink) {
  const auto isStopped = [&turn] { return turn.stopped(); };
  return runRequest(
      {port, L"POST", path, body},
      {{CancelSlot::turn}, isStopped, true, streamTimeouts(), sink, [isStopped](std::size_t) {
         return isStopped();
       }});
}

AgentResponse agentFeed(std::uint16_t port, const std::wstring& path, const RequestPlace& place,
                        const std::function<bool()>& isCurrent, const ChunkSink& sink) {
  return runRequest(
      {port, L"GET", path, ""},
      {place, [&isCurrent] { return !isCurrent(); }, true, streamTimeouts(), sink, {}});
}

}  // namespace media::win::chrome_inspect
