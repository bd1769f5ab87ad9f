#include <windows.h>

#include "platform/clock.h"
#include "platform/win/handles_win.h"
#include "setup/help_text.h"
#include "support/child_probe.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Starts a probe that writes to `output`, on a console of its own or on ours.
OwnedHandle startProbe(const wchar_t* command, HANDLE output, DWORD consoleFlag) {
  std::wstring line = childProbe(command);
  STARTUPINFOW start = {};
  PROCESS_INFORMATION made = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESHOWWINDOW | STARTF_USESTDHANDLES;
  start.wShowWindow = SW_HIDE;
  start.hStdOutput = start.hStdError = output;
  EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, consoleFlag, nullptr,
                             nullptr, &start, &made));
  const OwnedHandle thread(made.hThread);
  return OwnedHandle(made.hProcess);
}

// Presses a key again and again, as one that comes before the wait for it counts for nothing.
bool pressUntilEnd(const OwnedHandle& process) {
  INPUT_RECORD key = {};
  key.EventType = KEY_EVENT;
  key.Event.KeyEvent.bKeyDown = TRUE;
  key.Event.KeyEvent.wRepeatCount = 1;
  key.Event.KeyEvent.wVirtualKeyCode = VK_SPACE;
  const OwnedHandle input(CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                      nullptr));
  for (int i = 0; i < 300; ++i) {
    DWORD count = 0;
    WriteConsoleInputW(input.get(), &key, 1, &count);
    if (WaitForSingleObject(process.get(), 100) == WAIT_OBJECT_0) return true;
  }
  return false;
}

struct Explaining {
  OwnedHandle child;
  std::string printed;  // until it asks for a key, or ends
};

Explaining explainOnAConsoleOfItsOwn() {
  TestPipe pipe;
  SetHandleInformation(handleOf(pipe.writeEnd.get()), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  Explaining explaining{startProbe(L"explain", handleOf(pipe.writeEnd.get()), CREATE_NEW_CONSOLE),
                        {}};
  pipe.writeEnd.reset();
  std::size_t got = 0;
  for (char byte = 0; !explaining.printed.ends_with("close this window.\n") &&
                      readSome(pipe.readEnd.get(), &byte, 1, got) == ReadResult::data;) {
    explaining.printed += byte;
  }
  return explaining;
}

// Wine's console is a window, and its desktop a program that the first window starts: on a busy
// machine it now and then is not there within Wine's 10 s.
bool hadNoConsole(const Explaining& explaining) {
  DWORD code = 0;
  return explaining.printed.empty() &&
         WaitForSingleObject(explaining.child.get(), 5000) == WAIT_OBJECT_0 &&
         GetExitCodeProcess(explaining.child.get(), &code) != 0 && code == noConsoleCode;
}

TEST(RunUserCommand, WaitsForAKeyOnAConsoleThatWouldCloseWithIt) {
  Explaining explaining = explainOnAConsoleOfItsOwn();
  for (int tries = 1; hadNoConsole(explaining) && tries < 3; ++tries) {
    sleepMs(2000);
    explaining = explainOnAConsoleOfItsOwn();
  }
  const auto& [child, printed] = explaining;
  EXPECT_EQ(printed, helpText() + "\nPress a key to close this window.\n");
  EXPECT_EQ(WaitForSingleObject(child.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
  FreeConsole();
  ASSERT_TRUE(AttachConsole(GetProcessId(child.get()))) << GetLastError();
  EXPECT_TRUE(pressUntilEnd(child));
  DWORD code = 1;
  EXPECT_TRUE(GetExitCodeProcess(child.get(), &code));
  EXPECT_EQ(code, 0U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
