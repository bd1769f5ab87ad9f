#ifdef _WIN32

#include <winsock2.h>
#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <process.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <memory>
#include <utility>

#include "platform/environment.h"
#include "platform/win/handles_win.h"
#include "viewer_system.h"

namespace viewer_cli {
namespace {

namespace host = media::win::chrome_inspect;

constexpr std::size_t maxEnvironmentCharacters = 32768;  // no variable is longer
constexpr std::uintptr_t highestHandle = 0x4000;         // a fresh process has far fewer

std::string toUtf8(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
  return result;
}

std::wstring toWide(const std::string& text) {
  const int length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), size);
  return result;
}

std::string kindOf(HANDLE handle) {
  switch (GetFileType(handle)) {
    case FILE_TYPE_CHAR:
      return "char";
    case FILE_TYPE_DISK:
      return "disk";
    case FILE_TYPE_PIPE:
      return "pipe";
    default:
      return "other";
  }
}

unsigned __stdcall runBody(void* argument) {
  const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return 0;
}

}  // namespace

bool prepareSystem() {
  (void)_setmode(_fileno(stdout), _O_BINARY);
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

std::optional<Socket> listenOn(std::uint16_t port) {
  const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (listener == INVALID_SOCKET) return std::nullopt;
  // Without this another program could listen on the same port.
  const BOOL exclusive = TRUE;
  setsockopt(listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&exclusive),
             sizeof exclusive);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    closesocket(listener);
    return std::nullopt;
  }
  return listener;
}

std::optional<Socket> acceptFrom(Socket listener) {
  const SOCKET connection = accept(listener, nullptr, nullptr);
  if (connection == INVALID_SOCKET) return std::nullopt;
  return connection;
}

std::size_t receive(Socket socket, char* buffer, std::size_t capacity) {
  const auto wanted = static_cast<int>(std::min<std::size_t>(capacity, INT_MAX));
  const int got = recv(socket, buffer, wanted, 0);
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

bool sendAll(Socket socket, std::string_view data) {
  while (!data.empty()) {
    const auto piece = static_cast<int>(std::min<std::size_t>(data.size(), INT_MAX));
    const int sent = send(socket, data.data(), piece, 0);
    if (sent <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void closeSocket(Socket socket) {
  shutdown(socket, SD_SEND);
  closesocket(socket);
}

// Not std::thread: detached ones get lost under Wine.
bool startThread(std::function<void()> body) {
  auto owned = std::make_unique<std::function<void()>>(std::move(body));
  const std::uintptr_t thread = _beginthreadex(nullptr, 0, runBody, owned.get(), 0, nullptr);
  if (thread == 0) return false;
  (void)owned.release();  // the thread's own now
  CloseHandle(reinterpret_cast<HANDLE>(thread));
  return true;
}

std::uint64_t ownProcessId() { return GetCurrentProcessId(); }

std::string workingFolder() {
  std::wstring folder(GetCurrentDirectoryW(0, nullptr), L'\0');
  folder.resize(GetCurrentDirectoryW(static_cast<DWORD>(folder.size()), folder.data()));
  return toUtf8(folder);
}

std::string commandTail(int, char**) {
  const std::string line = toUtf8(GetCommandLineW());
  const bool quoted = line.starts_with('"');
  const std::size_t end = line.find(quoted ? '"' : ' ', quoted ? 1 : 0);
  return end == std::string::npos ? "" : line.substr(end + (quoted ? 1 : 0));
}

std::vector<std::string> standardStreams() {
  std::vector<std::string> kinds;
  for (const DWORD which : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
    kinds.push_back(kindOf(GetStdHandle(which)));
  }
  return kinds;
}

// An inherited handle is inheritable again, which those that the process opens itself are not.
std::vector<std::string> inheritedHandles() {
  std::vector<std::string> found;
  for (std::uintptr_t value = 4; value < highestHandle; value += 4) {
    const auto handle = reinterpret_cast<HANDLE>(value);
    DWORD flags = 0;
    if (!GetHandleInformation(handle, &flags) || (flags & HANDLE_FLAG_INHERIT) == 0) continue;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%llx ", static_cast<unsigned long long>(value));
    found.push_back(text.data() + kindOf(handle));
  }
  return found;
}

std::string environmentText(const char* name) {
  std::wstring value;
  return host::readEnvironment(toWide(name), maxEnvironmentCharacters, value) ? toUtf8(value) : "";
}

bool appendToFile(const std::string& pathUtf8, std::string_view text) {
  const host::OwnedHandle file(CreateFileW(toWide(pathUtf8).c_str(), FILE_APPEND_DATA,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
  const auto size = static_cast<DWORD>(text.size());
  DWORD written = 0;
  return file && WriteFile(file.get(), text.data(), size, &written, nullptr) && written == size;
}

}  // namespace viewer_cli

#endif
