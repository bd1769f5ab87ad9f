#include "agent/agent_request.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "text/json_parse.h"
#include "text/url_escape.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t maxProbeBody = 64 * 1024;

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

HttpTimeouts timeoutsFor(const AgentRequestOptions& options) {
  if (options.streaming || options.slot != CancelSlot::plain) {
    HttpTimeouts unlimited;
    unlimited.receiveMs = 0;
    return unlimited;
  }
  HttpTimeouts timeouts;
  if (options.totalMs == 0) return timeouts;
  const auto most = static_cast<int>(std::min<std::uint32_t>(options.totalMs, 60000));
  for (int* limit : {&timeouts.connectMs, &timeouts.sendMs, &timeouts.receiveMs}) {
    *limit = std::clamp(*limit, 1, std::max(most, 1));
  }
  return timeouts;
}

// Keeps a request in its slot for as long as it runs, however that ends.
class Published {
 public:
  Published(CancelSlot slot, std::shared_ptr<HttpExchange> request)
      : slot_(slot), request_(std::move(request)), ok_(publishRequest(slot_, request_)) {}
  ~Published() { takeBackRequest(slot_, request_); }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;
  bool ok() const { return ok_; }

 private:
  CancelSlot slot_;
  std::shared_ptr<HttpExchange> request_;
  bool ok_;
};

// One request from its opening on; the steps of agentRequest share it.
class Exchange {
 public:
  Exchange(HttpExchange& request, const AgentRequestOptions& options, bool stopOnCancel)
      : request_(request), options_(options), stopOnCancel_(stopOnCancel) {}

  void run(std::string_view body, AgentResponse& response) {
    if (!request_.send(body) || !request_.receive()) {
      response.error = cancelled() ? "cancelled" : "agent request failed";
      return;
    }
    response.status = request_.status();
    const auto shouldStop = [this, &response] { return mustStop(response.body.size()); };
    if (!readAgentBody(request_, response.body, options_.sink, shouldStop)) {
      const bool wasCancelled = options_.streaming && cancelled();
      response.error = wasCancelled ? "cancelled" : "agent response truncated";
    }
  }

 private:
  bool cancelled() const { return options_.cancelled ? options_.cancelled() : cancelRequested(); }

  bool mustStop(std::size_t bodySize) const {
    if (options_.streaming) return stopOnCancel_ && cancelled();
    const bool isLate = options_.totalMs != 0 && SteadyClock::now() > deadline_;
    return isLate || bodySize > options_.maxBodyBytes;
  }

  HttpExchange& request_;
  const AgentRequestOptions& options_;
  bool stopOnCancel_;
  SteadyClock::time_point deadline_ =
      SteadyClock::now() + std::chrono::milliseconds(options_.totalMs);
};

}  // namespace

AgentResponse agentRequest(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                           std::string_view body, const AgentRequestOptions& options) {
  AgentResponse response;
  std::shared_ptr<HttpExchange> request;
  const std::wstring target = toWide(escapeTarget(toUtf8(path)));
  const HttpOpenResult opened = openHttpExchange(port, verb, target, timeoutsFor(options), request);
  if (opened != HttpOpenResult::ok) {
    response.error = openErrorText(opened);
    return response;
  }
  const bool ownSlot = options.slot != CancelSlot::plain;
  const bool asTurn = options.streaming && !ownSlot;
  const Published published(asTurn ? CancelSlot::turn : options.slot, request);
  // Asked once it is published: whoever cancels says so first and then takes what is published.
  if (!published.ok() || (options.cancelled && options.cancelled())) {
    response.error = "cancelled";
    return response;
  }
  Exchange(*request, options, asTurn).run(body, response);
  return response;
}

bool probeAgentReady(std::int32_t port, std::uint32_t limitMs) {
  return isReadyAnswer(askAgentReady(port, limitMs));
}

AgentResponse askAgentReady(std::int32_t port, std::uint32_t limitMs) {
  AgentRequestOptions options;
  options.maxBodyBytes = maxProbeBody;
  options.totalMs = limitMs;
  return agentRequest(static_cast<std::uint16_t>(port), L"GET", L"/ready", "", options);
}

bool isReadyAnswer(const AgentResponse& response) {
  nlohmann::json answer;
  std::string error;
  if (!response.error.empty() || response.status != 200) return false;
  if (parseJson(response.body, answer, error) != ParseOutcome::ok || !answer.is_object())
    return false;
  const auto ready = answer.find("ready");
  return ready == answer.end() || *ready == true;
}

}  // namespace media::win::chrome_inspect
