#include "toolserver/tool_server.h"

#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <utility>

#include "channel/host_log.h"
#include "common/detached.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/locks.h"
#include "platform/sockets.h"
#include "text/ascii.h"
#include "text/leaked.h"
#include "toolserver/connection.h"
#include "toolserver/connection_threads.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int backlog = 8;
constexpr std::size_t tokenBytes = 32;
constexpr auto startLimit = std::chrono::seconds(2);

// `accept` that fails at once, over and over, must not take a core.
constexpr std::uint32_t acceptPauseMs = 10;

struct ToolServer {
  std::atomic<std::int32_t> port = 0;
  Mutex mutex;
  Condition changed;
  bool settled MORVA_GUARDED_BY(mutex) = false;
};

ToolServer& toolServer() {
  static ToolServer& server = leaked<ToolServer>();
  return server;
}

std::string makeToken() {
  std::array<unsigned char, tokenBytes> bytes{};
  if (!randomBytes(bytes.data(), bytes.size())) return {};
  return hexDigits({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Binds the first free port and listens on it; 0 when there is none. A port that cannot be listened
// on is none.
std::int32_t bindListener(OwnedSocket& listener) {
  if (!startSockets() || !openSocket(listener)) return 0;
  for (std::uint16_t port = firstToolServerPort; port <= lastToolServerPort; ++port) {
    if (!bindLoopback(listener, port)) continue;
    return listenOn(listener, backlog) ? port : 0;
  }
  return 0;
}

void settle(std::int32_t port) {
  ToolServer& server = toolServer();
  server.port = port;
  const Lock lock(server.mutex);
  server.settled = true;
  server.changed.notifyAll();
}

// False when it failed, the system's call or for want of memory.
bool acceptNext(const OwnedSocket& listener, ConnectionThreads& threads) {
  try {
    OwnedSocket connection;
    if (!acceptOne(listener, connection)) return false;
    if (threads.serve(std::move(connection)) == Serve::noThread) {
      queueDebugLog("tool server: a connection was closed, no thread for it", "warn");
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

[[noreturn]] void acceptForever(const OwnedSocket& listener, std::int32_t port) {
  ConnectionThreads& threads = leaked<ConnectionThreads>([port](const OwnedSocket& connection) {
    handleConnection(connection, port, sessionToken());
  });
  for (;;) {
    if (!acceptNext(listener, threads)) sleepMs(acceptPauseMs);
  }
}

void runListener() {
  OwnedSocket listener;
  const std::int32_t port = bindListener(listener);
  settle(port);
  if (port != 0) acceptForever(listener, port);
}

std::string urlOf(std::string_view path) {
  const std::int32_t port = toolServerPort();
  if (port < 1 || sessionToken().empty()) return {};
  return "http://127.0.0.1:" + std::to_string(port) + std::string(path);
}

}  // namespace

void startToolServer() {
  ToolServer& server = toolServer();
  if (!runDetached("tool server", runListener)) return;
  const auto deadline = Condition::Clock::now() + startLimit;
  const Lock lock(server.mutex);
  while (!server.settled && server.changed.waitUntil(server.mutex, deadline)) continue;
}

std::int32_t toolServerPort() { return toolServer().port; }

const std::string& sessionToken() {
  static const std::string& token = leaked<std::string>(makeToken());
  return token;
}

std::string agentToolsUrl() { return urlOf("/api/agent-tools"); }

std::string contextFileUrl() { return urlOf("/api/context-file"); }

}  // namespace media::win::chrome_inspect
