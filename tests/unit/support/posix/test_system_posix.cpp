#include "support/test_system.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

// Of the sanitizer that watches memory, where there is one.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __lsan_do_leak_check() __attribute__((weak));

namespace media::win::chrome_inspect {

const std::string_view inheritedByChild = "0 1 2 ";
const std::size_t handlesOfTheSystem = 0;

std::uint32_t ownProcessId() { return static_cast<std::uint32_t>(getpid()); }

std::string inheritedStreams() {
  std::set<int> descriptors;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    descriptors.insert(std::stoi(entry.path().filename().string()));
  }
  descriptors.erase(*descriptors.rbegin());  // the one that reads the list
  std::string text;
  for (const int descriptor : descriptors) text += std::to_string(descriptor) + " ";
  return text;
}

std::size_t openHandleCount() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

void setEnvironment(const std::string& name, const std::string& value) {
  if (value.empty()) {
    unsetenv(name.c_str());
  } else {
    setenv(name.c_str(), value.c_str(), 1);
  }
}

StreamId replaceStandardOutput(StreamId stream) {
  std::fflush(stdout);  // what the test framework still holds back is not ours
  const int old = dup(STDOUT_FILENO);
  dup2(static_cast<int>(stream), STDOUT_FILENO);
  return old;
}

void restoreStandardOutput(StreamId old) {
  std::fflush(stdout);
  dup2(static_cast<int>(old), STDOUT_FILENO);
  close(static_cast<int>(old));
}

bool strikeHost() { return false; }

void lookForLostMemory() {
  if (__lsan_do_leak_check != nullptr) __lsan_do_leak_check();
}

std::string processState() { return ""; }

void useConsoleInput() {}

std::uint16_t portOf(const OwnedSocket& listener) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(static_cast<int>(listener.get()), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

bool sendsAtOnce(const OwnedSocket& socket) {
  int on = 0;
  socklen_t size = sizeof on;
  getsockopt(static_cast<int>(socket.get()), IPPROTO_TCP, TCP_NODELAY, &on, &size);
  return on != 0;
}

void finishSending(const OwnedSocket& socket) { shutdown(static_cast<int>(socket.get()), SHUT_WR); }

std::function<bool()> sleepOfThisThread() {
  return [file = "/proc/self/task/" + std::to_string(gettid()) + "/stat"] {
    std::ifstream stat(file);
    return std::string(std::istreambuf_iterator<char>(stat), {}).find(") S ") != std::string::npos;
  };
}

}  // namespace media::win::chrome_inspect
