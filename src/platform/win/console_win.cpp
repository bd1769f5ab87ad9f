#include "platform/console.h"

#include <algorithm>
#include <string>

#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t consolePiece = 8000;  // a console takes no more than 64 KiB at once

std::wstring utf16Of(std::string_view text) {
  const int size = static_cast<int>(std::min<std::size_t>(text.size(), MAXLONG / 2));
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(std::max(length, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
  return wide;
}

void writeToConsole(HANDLE console, const std::wstring& text) {
  for (std::size_t done = 0; done < text.size();) {
    const auto size = static_cast<DWORD>(std::min(text.size() - done, consolePiece));
    DWORD written = 0;
    if (!WriteConsoleW(console, text.data() + done, size, &written, nullptr) || written == 0)
      return;
    done += written;
  }
}

}  // namespace

StreamId standardError() { return rawOf(GetStdHandle(STD_ERROR_HANDLE)); }

bool isConsole(StreamId stream) {
  DWORD mode = 0;
  return GetConsoleMode(handleOf(stream), &mode) != 0;
}

bool isAloneOnConsole() {
  DWORD ids[2] = {};
  return GetConsoleProcessList(ids, 2) == 1;
}

void waitForKey() {
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  INPUT_RECORD record = {};
  DWORD count = 0;
  FlushConsoleInputBuffer(input);  // what was pressed before belongs to nobody
  while (ReadConsoleInputW(input, &record, 1, &count)) {
    if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown) return;
  }
}

void writeText(StreamId stream, std::string_view text) {
  if (isConsole(stream)) return writeToConsole(handleOf(stream), utf16Of(text));
  for (std::size_t done = 0, written = 0; done < text.size(); done += written) {
    if (!writeSome(stream, text.data() + done, text.size() - done, written)) return;
  }
}

}  // namespace media::win::chrome_inspect
