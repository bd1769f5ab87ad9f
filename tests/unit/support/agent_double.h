#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/scripted_server.h"

namespace media::win::chrome_inspect {

// An agent on a free port of 127.0.0.1: it is ready, and every other request is answered by the
// script, each on a thread of its own. The destructor waits for the scripts.
class AgentDouble {
 public:
  using Script = ScriptedServer::Script;
  explicit AgentDouble(Script script);
  ~AgentDouble();

  std::int32_t port() const { return port_; }
  // Makes it the host's current agent.
  void adopt() const;
  // The requests whose line begins with `start`, such as "GET /v1", in the order they came.
  std::vector<std::string> requests(std::string_view start);
  // Waits until `count` of them have come, at most 30 s.
  std::vector<std::string> waitForRequests(std::string_view start, std::size_t count);

 private:
  void accept();
  void serve(LoopbackSocket socket);

  const Script script_;
  std::uint16_t port_ = 0;
  LoopbackSocket listener_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  bool stopping_ = false;
  std::vector<std::string> requests_;
  std::vector<std::unique_ptr<TestThread>> servers_;
  std::unique_ptr<TestThread> acceptor_;
};

// Answers with status 200 and a body, or with another status line.
void answerWith(ServedConnection& connection, std::string_view body,
                std::string_view status = "200 OK");

// The head of a stream that ends with its connection.
inline constexpr std::string_view streamHead = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";

// The body of a request as it came.
std::string bodyOf(const std::string& request);

}  // namespace media::win::chrome_inspect
