#pragma once

#include <list>

#include "support/loopback_socket.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// One connection of a ScriptedServer, after its request has been read.
class ServedConnection {
 public:
  ServedConnection(OwnedSocket socket, std::string requestText)
      : request(std::move(requestText)), socket_(std::move(socket)) {}

  bool send(std::string_view bytes) { return sendTo(socket_, bytes); }
  // True when the client has closed the connection; waits for that.
  bool waitForClient() {
    char byte = 0;
    return receiveFrom(socket_, &byte, 1) == 0;
  }

  const OwnedSocket& socket() const { return socket_; }

  const std::string request;  // head and body as they came

 private:
  OwnedSocket socket_;
};

// An HTTP server on a free port of 127.0.0.1 that reads a request and leaves the answer, byte by
// byte, to the test's script. Each connection is served on a thread of its own and closed when its
// script returns. The destructor waits for the scripts.
class ScriptedServer {
 public:
  using Script = std::function<void(ServedConnection&)>;
  // Whoever speaks first itself does not wait for a request.
  explicit ScriptedServer(Script script, bool readsRequest = true);
  ~ScriptedServer();

  std::uint16_t port() const { return port_; }
  // The requests so far whose line begins with `start`, such as "GET /v1", in the order they came.
  std::vector<std::string> requests(std::string_view start = {});
  // Waits until `count` of them have come, at most 30 s.
  std::vector<std::string> waitForRequests(std::string_view start, std::size_t count);

 private:
  void accept();
  void serve(OwnedSocket socket);

  const Script script_;
  const bool readsRequest_;
  std::uint16_t port_ = 0;
  OwnedSocket listener_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  bool stopping_ = false;
  std::vector<std::string> requests_;
  std::list<TestThread> servers_;
  TestThread acceptor_;  // ends first
};

// A script that sends `bytes`, `pieceSize` of them at a time.
ScriptedServer::Script sendInPieces(std::string bytes, std::size_t pieceSize);

// A whole answer with a body.
std::string answerText(std::string_view body, std::string_view status = "200 OK");
void answerWith(ServedConnection& connection, std::string_view body,
                std::string_view status = "200 OK");

// The head of a stream that ends with its connection.
inline constexpr std::string_view streamHead = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";

// The target of a request, and its body as it came.
std::string pathOf(const std::string& request);
std::string bodyOf(const std::string& request);

}  // namespace media::win::chrome_inspect
