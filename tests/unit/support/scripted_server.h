#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/loopback_socket.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {

// One connection of a ScriptedServer, after its request has been read.
class ServedConnection {
 public:
  ServedConnection(LoopbackSocket socket, std::string requestText)
      : request(std::move(requestText)), socket_(std::move(socket)) {}

  bool send(std::string_view bytes) { return sendTo(socket_, bytes); }
  // True when the client has closed the connection; waits for that.
  bool waitForClient();

  const std::string request;  // head and body as they came

 private:
  LoopbackSocket socket_;
};

// An HTTP server on a free port of 127.0.0.1 that reads a request and leaves the answer, byte by
// byte, to the test's script. Connections are served one after the other, each closed when its
// script returns. The destructor waits for the running script.
class ScriptedServer {
 public:
  using Script = std::function<void(ServedConnection&)>;
  explicit ScriptedServer(Script script);
  ~ScriptedServer();

  std::uint16_t port() const { return port_; }
  // The requests that have come so far.
  std::vector<std::string> requests();

 private:
  void serve();

  const Script script_;
  std::uint16_t port_ = 0;
  LoopbackSocket listener_;
  std::atomic<bool> stopping_ = false;
  std::mutex mutex_;  // guards what follows
  std::vector<std::string> requests_;
  std::unique_ptr<TestThread> thread_;
};

// A script that sends `bytes`, `pieceSize` of them at a time.
ScriptedServer::Script sendInPieces(std::string bytes, std::size_t pieceSize);

}  // namespace media::win::chrome_inspect
