#include "support/scripted_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

constexpr int backlog = 64;

std::size_t announcedLength(const std::string& head) {
  constexpr std::string_view name = "Content-Length: ";
  const std::size_t at = head.find(name);
  std::size_t length = 0;
  if (at != head.npos) {
    std::from_chars(head.data() + at + name.size(), head.data() + head.size(), length);
  }
  return length;
}

std::string readRequest(const LoopbackSocket& socket) {
  std::string request;
  std::size_t wanted = 0;
  char buffer[4096];
  while (wanted == 0 || request.size() < wanted) {
    const std::size_t got = receiveFrom(socket, buffer, sizeof buffer);
    if (got == 0) break;
    request.append(buffer, got);
    const std::size_t end = request.find("\r\n\r\n");
    if (end != request.npos) wanted = end + 4 + announcedLength(request.substr(0, end));
  }
  return request;
}

}  // namespace

bool ServedConnection::waitForClient() {
  char byte = 0;
  return receiveFrom(socket_, &byte, 1) == 0;
}

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
  listener_ = listenOnLoopback(port_, backlog);
  acceptor_ = std::make_unique<TestThread>([this] { accept(); });
}

ScriptedServer::~ScriptedServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  (void)connectToLoopback(port_);  // ends the wait for a connection
  acceptor_.reset();
  servers_.clear();
}

std::vector<std::string> ScriptedServer::requests(std::string_view start) {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> found;
  std::copy_if(requests_.begin(), requests_.end(), std::back_inserter(found),
               [start](const std::string& request) { return request.starts_with(start); });
  return found;
}

std::vector<std::string> ScriptedServer::waitForRequests(std::string_view start,
                                                         std::size_t count) {
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

void ScriptedServer::accept() {
  for (;;) {
    auto socket = std::make_shared<LoopbackSocket>(acceptFrom(listener_));
    const std::lock_guard lock(mutex_);
    if (!*socket || stopping_) return;
    servers_.push_back(std::make_unique<TestThread>([this, socket] { serve(std::move(*socket)); }));
  }
}

void ScriptedServer::serve(LoopbackSocket socket) {
  std::string request = readRequest(socket);
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
  }
  ServedConnection connection(std::move(socket), std::move(request));
  script_(connection);
}

ScriptedServer::Script sendInPieces(std::string bytes, std::size_t pieceSize) {
  return [bytes = std::move(bytes), pieceSize](ServedConnection& connection) {
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
      if (!connection.send(std::string_view(bytes).substr(at, pieceSize))) return;
    }
  };
}

std::string answerText(std::string_view body, std::string_view status) {
  std::string answer = "HTTP/1.1 " + std::string(status);
  answer += "\r\nContent-Length: " + std::to_string(body.size());
  answer += "\r\nConnection: close\r\n\r\n";
  return answer.append(body);
}

void answerWith(ServedConnection& connection, std::string_view body, std::string_view status) {
  (void)connection.send(answerText(body, status));
}

std::string pathOf(const std::string& request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

std::string bodyOf(const std::string& request) {
  const std::size_t headEnd = request.find("\r\n\r\n");
  return headEnd == std::string::npos ? "" : request.substr(headEnd + 4);
}

}  // namespace media::win::chrome_inspect
