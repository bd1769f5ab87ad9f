#include "support/scripted_server.h"

#include <charconv>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

constexpr int backlog = 16;

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
    if (end != request.npos) wanted = end + 4 + announcedLength(request);
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
  thread_ = std::make_unique<TestThread>([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
  stopping_.store(true);
  (void)connectToLoopback(port_);  // ends the wait for a connection
  thread_.reset();
}

std::vector<std::string> ScriptedServer::requests() {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void ScriptedServer::serve() {
  while (!stopping_.load()) {
    LoopbackSocket socket = acceptFrom(listener_);
    if (!socket || stopping_.load()) return;
    std::string request = readRequest(socket);
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
    }
    ServedConnection connection(std::move(socket), std::move(request));
    script_(connection);
  }
}

ScriptedServer::Script sendInPieces(std::string bytes, std::size_t pieceSize) {
  return [bytes = std::move(bytes), pieceSize](ServedConnection& connection) {
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
      if (!connection.send(std::string_view(bytes).substr(at, pieceSize))) return;
    }
  };
}

}  // namespace media::win::chrome_inspect
