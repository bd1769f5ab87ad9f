#ifndef _WIN32

#include "viewer_system.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

namespace viewer_cli {
namespace {

namespace fs = std::filesystem;

int descriptorOf(Socket socket) { return static_cast<int>(socket); }

std::optional<Socket> socketOf(int descriptor) {
  if (descriptor < 0) return std::nullopt;
  return static_cast<Socket>(descriptor);
}

std::string targetOf(int descriptor) {
  std::error_code error;
  const fs::path target = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
  return error ? "" : target.string();
}

}  // namespace

bool prepareSystem() { return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR; }

std::optional<Socket> listenOn(std::uint16_t port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return std::nullopt;
  const int reuse = 1;  // of a port whose last connections still linger
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    close(listener);
    return std::nullopt;
  }
  return socketOf(listener);
}

std::optional<Socket> acceptFrom(Socket listener) {
  int connection = -1;
  do {
    connection = accept4(descriptorOf(listener), nullptr, nullptr, SOCK_CLOEXEC);
  } while (connection < 0 && errno == EINTR);
  return socketOf(connection);
}

std::size_t receive(Socket socket, char* buffer, std::size_t capacity) {
  ssize_t got = -1;
  do {
    got = recv(descriptorOf(socket), buffer, capacity, 0);
  } while (got < 0 && errno == EINTR);
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

bool sendAll(Socket socket, std::string_view data) {
  while (!data.empty()) {
    const ssize_t sent = send(descriptorOf(socket), data.data(), data.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void closeSocket(Socket socket) {
  shutdown(descriptorOf(socket), SHUT_WR);
  close(descriptorOf(socket));
}

bool startThread(std::function<void()> body) {
  try {
    std::thread(std::move(body)).detach();
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

std::uint64_t ownProcessId() { return static_cast<std::uint64_t>(getpid()); }

std::string workingFolder() { return fs::current_path().string(); }

std::string commandTail(int argc, char** argv) {
  std::string tail;
  for (int i = 1; i < argc; ++i) tail += std::string(" ") + argv[i];
  return tail;
}

std::vector<std::string> standardStreams() { return {targetOf(0), targetOf(1), targetOf(2)}; }

// Asked before the process opens anything itself, so what is open has been inherited.
std::vector<std::string> inheritedHandles() {
  const std::string listed = "/proc/" + std::to_string(getpid()) + "/fd";
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(listed, error)) {
    const std::string target = fs::read_symlink(entry.path(), error).string();
    // One of them is the listing itself.
    if (!target.empty() && target != listed) {
      found.push_back(entry.path().filename().string() + " " + target);
    }
  }
  return found;
}

std::string environmentText(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool appendToFile(const std::string& pathUtf8, std::string_view text) {
  FILE* file = std::fopen(pathUtf8.c_str(), "ab");
  if (file == nullptr) return false;
  const bool whole = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && whole;
}

}  // namespace viewer_cli

#endif
