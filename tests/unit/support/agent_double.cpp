#include "support/agent_double.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "agent/agent_state.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int backlog = 64;

std::string readRequest(const LoopbackSocket& socket) {
  constexpr std::string_view lengthField = "Content-Length: ";
  std::string request;
  char buffer[4096];
  for (;;) {
    const std::size_t headEnd = request.find("\r\n\r\n");
    if (headEnd != std::string::npos) {
      const std::size_t at = request.find(lengthField);
      const std::size_t length =
          at < headEnd ? std::stoul(request.substr(at + lengthField.size())) : 0;
      if (request.size() >= headEnd + 4 + length) return request;
    }
    const std::size_t got = receiveFrom(socket, buffer, sizeof buffer);
    if (got == 0) return request;
    request.append(buffer, got);
  }
}

}  // namespace

AgentDouble::AgentDouble(Script script) : script_(std::move(script)) {
  listener_ = listenOnLoopback(port_, backlog);
  acceptor_ = std::make_unique<TestThread>([this] { accept(); });
}

AgentDouble::~AgentDouble() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  (void)connectToLoopback(port_);  // ends the wait for a connection
  acceptor_.reset();
  servers_.clear();
}

void AgentDouble::adopt() const { adoptFoundAgent(port_); }

std::vector<std::string> AgentDouble::requests(std::string_view start) {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> found;
  std::copy_if(requests_.begin(), requests_.end(), std::back_inserter(found),
               [start](const std::string& request) { return request.starts_with(start); });
  return found;
}

std::vector<std::string> AgentDouble::waitForRequests(std::string_view start, std::size_t count) {
  const auto isOne = [start](const std::string& request) { return request.starts_with(start); };
  std::unique_lock lock(mutex_);
  const bool came = changed_.wait_for(lock, std::chrono::seconds(30), [&] {
    return std::count_if(requests_.begin(), requests_.end(), isOne) >=
           static_cast<std::ptrdiff_t>(count);
  });
  if (!came) ADD_FAILURE() << "not " << count << " times " << start;
  lock.unlock();
  return requests(start);
}

void AgentDouble::accept() {
  for (;;) {
    auto socket = std::make_shared<LoopbackSocket>(acceptFrom(listener_));
    const std::lock_guard lock(mutex_);
    if (!*socket || stopping_) return;
    servers_.push_back(std::make_unique<TestThread>([this, socket] { serve(std::move(*socket)); }));
  }
}

void AgentDouble::serve(LoopbackSocket socket) {
  std::string request = readRequest(socket);
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
  }
  ServedConnection connection(std::move(socket), std::move(request));
  if (connection.request.starts_with("GET /ready")) return answerWith(connection, "{}");
  script_(connection);
}

void answerWith(ServedConnection& connection, std::string_view body, std::string_view status) {
  std::string answer = "HTTP/1.1 " + std::string(status);
  answer += "\r\nContent-Length: " + std::to_string(body.size());
  answer += "\r\nConnection: close\r\n\r\n";
  (void)connection.send(answer.append(body));
}

std::string bodyOf(const std::string& request) {
  const std::size_t headEnd = request.find("\r\n\r\n");
  return headEnd == std::string::npos ? "" : request.substr(headEnd + 4);
}

}  // namespace media::win::chrome_inspect
