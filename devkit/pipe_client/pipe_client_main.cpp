// A client of the host's inspect pipe, for tests and for trying things out:
//
//   morva-pipe-client.exe [--hold] <request >answer
//
// Connects, waiting up to 30 s while another client is served; says "connected" on standard error;
// hands standard input to the pipe up to its end, then the pipe to standard output up to its end.
// With --hold nothing is read from the pipe, and the connection is kept until the program is ended.
// The bytes pass as they are; a frame is made by the caller.

#include <windows.h>

#include <cstdio>
#include <string_view>

namespace {

constexpr const char* pipeName = R"(\\.\pipe\morva-chrome-inspect)";
constexpr int tries = 1500;  // 30 s
constexpr DWORD betweenTriesMs = 20;
constexpr DWORD bufferBytes = 65536;

HANDLE openPipe() {
  return CreateFileA(pipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

// Between two clients there is no pipe of that name for a moment, so both failures are tried again.
HANDLE connect() {
  for (int i = 0; i < tries; ++i) {
    const HANDLE pipe = openPipe();
    if (pipe != INVALID_HANDLE_VALUE) return pipe;
    Sleep(betweenTriesMs);
  }
  return INVALID_HANDLE_VALUE;
}

bool writeAll(HANDLE to, const char* bytes, DWORD size) {
  for (DWORD done = 0, written = 0; done < size; done += written) {
    if (!WriteFile(to, bytes + done, size - done, &written, nullptr)) return false;
  }
  return true;
}

void copy(HANDLE from, HANDLE to) {
  static char buffer[bufferBytes];
  for (DWORD got = 0; ReadFile(from, buffer, sizeof buffer, &got, nullptr) && got > 0;) {
    if (!writeAll(to, buffer, got)) return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const HANDLE pipe = connect();
  if (pipe == INVALID_HANDLE_VALUE) {
    std::fprintf(stderr, "nobody serves %s\n", pipeName);
    return 2;
  }
  std::fputs("connected\n", stderr);
  std::fflush(stderr);
  copy(GetStdHandle(STD_INPUT_HANDLE), pipe);
  if (argc > 1 && std::string_view(argv[1]) == "--hold") Sleep(INFINITE);
  copy(pipe, GetStdHandle(STD_OUTPUT_HANDLE));
  CloseHandle(pipe);
  return 0;
}
