#include "toolserver/connection.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "toolserver/access.h"
#include "toolserver/http_request.h"
#include "toolserver/http_response.h"
#include "toolserver/routes.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::uint32_t stepTimeoutMs = 5000;
constexpr auto headLimit = std::chrono::seconds(10);
constexpr auto requestLimit = std::chrono::seconds(60);
constexpr auto answerLimit = std::chrono::seconds(60);

// Handed to the system in one call: what must leave within one step's time-out, however slow the
// peer.
constexpr std::size_t sendPieceBytes = 262144;

// Up to here copying a body behind its header costs less than one more packet.
constexpr std::size_t smallBodyBytes = 16384;

constexpr const char* failureBody = R"({"ok":false})";

// Receives until the request's own deadline: a peer that sends a byte now and then would otherwise
// hold its thread for days.
class BoundedReceiver {
 public:
  explicit BoundedReceiver(const OwnedSocket& socket) : socket_(socket) {}

  bool operator()(char* buffer, std::size_t capacity, std::size_t& got) const {
    return SteadyClock::now() < deadline_ && receiveSome(socket_, buffer, capacity, got);
  }

  void headIsRead() { deadline_ = started_ + requestLimit; }

 private:
  const OwnedSocket& socket_;
  SteadyClock::time_point started_ = SteadyClock::now();
  SteadyClock::time_point deadline_ = started_ + headLimit;
};

HttpResponse refusal(Verdict verdict, const std::string& origin) {
  switch (verdict) {
    case Verdict::preflight:
      return jsonResponse(204, "No Content", "", origin);
    case Verdict::unauthorized:
      return jsonResponse(401, "Unauthorized", failureBody, origin);
    case Verdict::forbidden:
      return jsonResponse(403, "Forbidden", failureBody, "");
    case Verdict::badRequest:
    case Verdict::pass:
      break;
  }
  return jsonResponse(400, "Bad Request", failureBody, "");
}

HttpResponse answerOn(const OwnedSocket& connection, std::int32_t port, const std::string& token) {
  BoundedReceiver receiver(connection);
  Verdict verdict = Verdict::badRequest;
  // Judged as soon as the header is known: the body of a request that will be refused is not kept.
  const auto wantsBody = [&](const HttpRequest& request) {
    receiver.headIsRead();
    verdict = judgeRequest(request, port, token);
    return verdict == Verdict::pass;
  };
  HttpRequest request;
  const bool whole = readHttpRequest(std::ref(receiver), wantsBody, request);
  if (!whole) return refusal(Verdict::badRequest, "");
  return verdict == Verdict::pass ? answerRoute(request) : refusal(verdict, request.origin);
}

bool sendAll(const OwnedSocket& connection, const std::string& bytes,
             SteadyClock::time_point deadline) {
  for (std::size_t done = 0, sent = 0; done < bytes.size(); done += sent) {
    const std::size_t piece = std::min(bytes.size() - done, sendPieceBytes);
    if (SteadyClock::now() >= deadline) return false;
    if (!sendSome(connection, bytes.data() + done, piece, sent)) return false;
  }
  return true;
}

}  // namespace

void handleConnection(const OwnedSocket& connection, std::int32_t port, const std::string& token) {
  if (!setSocketTimeoutsMs(connection, stepTimeoutMs)) return;
  HttpResponse response = answerOn(connection, port, token);
  const auto deadline = SteadyClock::now() + answerLimit;
  if (response.body.size() <= smallBodyBytes) response.head += std::exchange(response.body, {});
  // A peer that does not take it has hung up, or will see the connection end.
  if (sendAll(connection, response.head, deadline)) {
    (void)sendAll(connection, response.body, deadline);
  }
}

}  // namespace media::win::chrome_inspect
