#include "platform/byte_stream.h"

#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

// What was taken of the system; written before any thread exists.
bool areTaken = false;
HANDLE takenInput = nullptr;
HANDLE takenOutput = nullptr;

HANDLE takeStream(DWORD which, DWORD access) {
  const HANDLE stream = GetStdHandle(which);
  SetHandleInformation(stream, HANDLE_FLAG_INHERIT, 0);
  // Never closed. Without a null device it is no handle at all, which is as good.
  SetStdHandle(which, CreateFileW(L"NUL", access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
  return stream;
}

}  // namespace

void StreamTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

StreamId standardInput() { return rawOf(areTaken ? takenInput : GetStdHandle(STD_INPUT_HANDLE)); }

StreamId standardOutput() {
  return rawOf(areTaken ? takenOutput : GetStdHandle(STD_OUTPUT_HANDLE));
}

void takeStandardStreams() {
  takenInput = takeStream(STD_INPUT_HANDLE, GENERIC_READ);
  takenOutput = takeStream(STD_OUTPUT_HANDLE, GENERIC_WRITE);
  areTaken = true;
}

ReadResult readSome(StreamId stream, char* buffer, std::size_t capacity, std::size_t& got) {
  DWORD count = 0;
  if (!ReadFile(handleOf(stream), buffer, oneCall(capacity), &count, nullptr)) {
    // A closed far end is an error on a pipe; other streams report it as 0 bytes read.
    return GetLastError() == ERROR_BROKEN_PIPE ? ReadResult::end : ReadResult::failed;
  }
  if (count == 0) return ReadResult::end;
  got = count;
  return ReadResult::data;
}

bool writeSome(StreamId stream, const char* bytes, std::size_t size, std::size_t& written) {
  DWORD count = 0;
  if (!WriteFile(handleOf(stream), bytes, oneCall(size), &count, nullptr) || count == 0) {
    return false;
  }
  written = count;
  return true;
}

bool makePipe(OwnedStream& readEnd, OwnedStream& writeEnd) {
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  if (!CreatePipe(&reading, &writing, nullptr, 0)) return false;
  readEnd.reset(rawOf(reading));
  writeEnd.reset(rawOf(writing));
  return true;
}

}  // namespace media::win::chrome_inspect
