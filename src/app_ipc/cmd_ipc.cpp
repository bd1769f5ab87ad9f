#include "app_ipc/cmd_ipc.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>

#include "app_ipc/instance_discovery.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/locks.h"
#include "platform/sockets.h"
#include "text/ascii.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using SteadyClock = std::chrono::steady_clock;

static_assert(std::endian::native == std::endian::little);  // lengths are read and written in place

constexpr std::uint32_t maxReplyBytes = 16777216;
constexpr std::uint64_t lookupLastsMs = 2001;
constexpr std::int64_t stepTimeoutMs = 15000;
constexpr auto exchangeLimit = std::chrono::seconds(30);
constexpr const char* recvFailed = "cmd_ipc recv failed";
constexpr const char* sendFailed = "cmd_ipc send failed";

struct InstanceCache {
  Mutex mutex;  // not held while folders are read
  AppInstance instance MORVA_GUARDED_BY(mutex);
  std::uint64_t lookedUpMs MORVA_GUARDED_BY(mutex) = 0;
};

InstanceCache& instanceCache() {
  static InstanceCache& cache = leaked<InstanceCache>();
  return cache;
}

// The instance last looked up, unless that was too long ago or found none.
bool cachedInstance(AppInstance& instance) {
  InstanceCache& cache = instanceCache();
  const Lock lock(cache.mutex);
  if (cache.instance.port == 0 || tickCountMs() - cache.lookedUpMs >= lookupLastsMs) return false;
  instance = cache.instance;
  return true;
}

AppInstance currentInstance() {
  AppInstance instance;
  if (cachedInstance(instance)) return instance;
  instance = discoverAppInstance();
  InstanceCache& cache = instanceCache();
  const Lock lock(cache.mutex);
  cache.instance = instance;
  cache.lookedUpMs = tickCountMs();
  return instance;
}

void forgetInstance() {
  InstanceCache& cache = instanceCache();
  const Lock lock(cache.mutex);
  cache.instance.port = 0;
}

// One connection with a deadline for all that happens on it: an application that hangs, or sends a
// byte now and then, does not hold the panel.
class Channel {
 public:
  bool open(std::uint32_t port, std::string& error) {
    if (!startSockets()) return fail(error, "winsock startup failed");
    if (!openSocket(socket_) || !limitNextStep()) {
      return fail(error, "cmd_ipc socket failed");
    }
    if (connectLoopback(socket_, static_cast<std::uint16_t>(port))) return true;
    return fail(error, "cmd_ipc connect failed");
  }

  bool receive(json& value, std::string& error) {
    std::uint32_t length = 0;
    if (!receiveAll(reinterpret_cast<char*>(&length), sizeof length))
      return fail(error, recvFailed);
    if (length > maxReplyBytes) return fail(error, "cmd_ipc frame too large");
    std::string body(length, '\0');
    std::string ignored;
    if (!receiveAll(body.data(), body.size())) return fail(error, recvFailed);
    return parseJson(body, value, ignored) == ParseOutcome::ok || fail(error, recvFailed);
  }

  bool send(const std::string& body, std::string& error) {
    const auto length = static_cast<std::uint32_t>(body.size());
    std::string frame(reinterpret_cast<const char*>(&length), sizeof length);
    frame += body;
    for (std::size_t done = 0, sent = 0; done < frame.size(); done += sent) {
      if (!limitNextStep() || !sendSome(socket_, frame.data() + done, frame.size() - done, sent)) {
        return fail(error, sendFailed);
      }
    }
    return true;
  }

 private:
  static bool fail(std::string& error, const char* text) {
    error = text;
    return false;
  }

  // Sets the time-out of the next read or write: that of a step, or what is left. False when
  // nothing is left.
  bool limitNextStep() {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - SteadyClock::now());
    if (left <= std::chrono::milliseconds::zero()) return false;
    return setSocketTimeoutsMs(
        socket_, static_cast<std::uint32_t>(std::min<std::int64_t>(left.count(), stepTimeoutMs)));
  }

  bool receiveAll(char* buffer, std::size_t size) {
    for (std::size_t done = 0, got = 0; done < size; done += got) {
      if (!limitNextStep() || !receiveSome(socket_, buffer + done, size - done, got)) return false;
    }
    return true;
  }

  OwnedSocket socket_;
  SteadyClock::time_point deadline_ = SteadyClock::now() + exchangeLimit;
};

bool decodeHex(std::string_view text, std::string& bytes) {
  if (text.empty() || text.size() % 2 != 0) return false;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    const int high = hexDigitValue(text[at]);
    const int low = hexDigitValue(text[at + 1]);
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(high * 16 + low);
  }
  return true;
}

bool isRefusal(const json& reply) {
  return lenientText(reply, "type") == "error" && lenientText(reply, "error") == "auth failed";
}

bool exchangeOn(Channel& channel, const json& message, const std::string& token, json& reply,
                std::string& error) {
  json challenge;
  if (!channel.receive(challenge, error)) return false;
  json proven = message;
  proven["proof"] = cmdIpcProof(lenientText(challenge, "nonce"), token);
  if (lenientText(proven, "proof").empty()) {
    error = "cmd_ipc proof failed";
    return false;
  }
  return channel.send(dumpJson(proven), error) && channel.receive(reply, error);
}

}  // namespace

bool commandRun(const json& request, json& reply, std::string& error) {
  return cmdIpcExchange({{"action", "command_run"}, {"request", request}}, reply, error);
}

bool cmdIpcExchange(const json& message, json& reply, std::string& error) {
  const AppInstance instance = currentInstance();
  if (instance.port == 0) {
    error = "morva is not running";
    return false;
  }
  Channel channel;
  if (!channel.open(instance.port, error)) {
    forgetInstance();
    return false;
  }
  json answer;
  if (!exchangeOn(channel, message, instance.token, answer, error)) return false;
  if (isRefusal(answer)) {
    error = "cmd_ipc authentication rejected";
    return false;
  }
  reply = std::move(answer);
  return true;
}

std::string cmdIpcProof(std::string_view nonce, std::string_view token) {
  std::string nonceBytes;
  std::string tokenBytes;
  if (!decodeHex(nonce, nonceBytes) || !decodeHex(token, tokenBytes)) return {};
  return hexDigits(sha256(nonceBytes + tokenBytes));
}

}  // namespace media::win::chrome_inspect
