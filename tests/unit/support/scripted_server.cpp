#include "support/scripted_server.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string readRequest(const OwnedSocket& socket) {
  constexpr std::string_view lengthName = "Content-Length: ";
  std::string request;
  char buffer[4096];
  for (std::size_t wanted = request.npos; request.size() < wanted;) {
    const std::size_t got = receiveFrom(socket, buffer, sizeof buffer);
    if (got == 0) break;
    request.append(buffer, got);
    const std::size_t end = request.find("\r\n\r\n");
    if (end == request.npos) continue;
    const std::size_t length = request.find(lengthName);
    wanted = end + 4 + (length < end ? std::stoul(request.substr(length + lengthName.size())) : 0);
  }
  return request;
}

}  // namespace

ScriptedServer::ScriptedServer(Script script, bool readsRequest)
    : script_(std::move(script)),
      readsRequest_(readsRequest),
      listener_(listenOnLoopback(port_, 64)),
      acceptor_([this] { accept(); }) {}

ScriptedServer::~ScriptedServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  (void)connectToLoopback(port_);  // ends the wait for a connection
}

std::vector<std::string> ScriptedServer::requests(std::string_view start) {
  return waitForRequests(start, 0);
}

std::vector<std::string> ScriptedServer::waitForRequests(std::string_view start,
                                                         std::size_t count) {
  std::vector<std::string> found;
  std::unique_lock lock(mutex_);
  const bool came = changed_.wait_for(lock, std::chrono::seconds(30), [&] {
    found.clear();
    std::ranges::copy_if(requests_, std::back_inserter(found),
                         [start](const std::string& each) { return each.starts_with(start); });
    return found.size() >= count;
  });
  if (!came) ADD_FAILURE() << "not " << count << " times " << start;
  return found;
}

void ScriptedServer::accept() {
  for (;;) {
    auto socket = std::make_shared<OwnedSocket>(acceptFrom(listener_));
    const std::lock_guard lock(mutex_);
    if (!*socket || stopping_) return;
    servers_.emplace_back([this, socket] { serve(std::move(*socket)); });
  }
}

void ScriptedServer::serve(OwnedSocket socket) {
  std::string request = readsRequest_ ? readRequest(socket) : "";
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
