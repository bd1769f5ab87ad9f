// What libraries that other programs put into ours find of the standard streams.
#include "platform/win/handles_win.h"
#include "support/child_probe.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Does not load where a standard stream is a pipe; where that pipe is being read, asking takes as
// long as the read.
const wchar_t* const askingLibrary = L"asking_library.dll";

std::wstring besideTheTests(const wchar_t* name) {
  const std::wstring tests = ownExecutable();
  return tests.substr(0, tests.find_last_of(L'\\') + 1) + name;
}

struct StartedHost {
  TestPipe input;
  TestPipe output;
  OwnedHandle process;

  explicit StartedHost(const std::wstring& arguments) {
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = handleOf(input.readEnd);
    start.hStdOutput = handleOf(output.writeEnd);
    for (const HANDLE own : {start.hStdInput, start.hStdOutput}) {
      SetHandleInformation(own, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    PROCESS_INFORMATION started = {};
    std::wstring line = L'"' + besideTheTests(L"morva-chrome-host.exe") + L"\" " + arguments;
    EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                               nullptr, nullptr, &start, &started));
    process.reset(started.hProcess);
    CloseHandle(started.hThread);
    output.writeEnd.reset();
  }
  ~StartedHost() { TerminateProcess(process.get(), 0); }

  // Returns when the host has answered, and so waits for the next message.
  void ask(const std::string& message) const {
    char byte = 0;
    std::size_t got = 0;
    EXPECT_TRUE(writeAll(input.writeEnd.get(), message));
    EXPECT_EQ(readSome(output.readEnd.get(), &byte, 1, got), ReadResult::data);
  }
};

// Whether another process takes a library within 20 s.
bool loadsInto(HANDLE process, const std::wstring& library) {
  const SIZE_T size = (library.size() + 1) * sizeof(wchar_t);
  void* const name = VirtualAllocEx(process, nullptr, size, MEM_COMMIT, PAGE_READWRITE);
  EXPECT_TRUE(WriteProcessMemory(process, name, library.c_str(), size, nullptr));
  const FARPROC load = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW");
  const OwnedHandle thread(CreateRemoteThread(
      process, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(load)),
      name, 0, nullptr));
  DWORD module = 0;
  return WaitForSingleObject(thread.get(), 20'000) == WAIT_OBJECT_0 &&
         GetExitCodeThread(thread.get(), &module) && module != 0;
}

TEST(StandardStreams, AreNotInherited) {
  const TestPipe pipe;
  SetStdHandle(STD_INPUT_HANDLE, handleOf(pipe.readEnd));
  SetStdHandle(STD_OUTPUT_HANDLE, handleOf(pipe.writeEnd));
  DWORD flags = HANDLE_FLAG_INHERIT;
  for (const HANDLE end : {handleOf(pipe.readEnd), handleOf(pipe.writeEnd)}) {
    EXPECT_TRUE(GetHandleInformation(end, &flags));
    EXPECT_EQ(flags, 0U);
    SetHandleInformation(end, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  }
  takeStandardStreams();
  for (const StreamId own : {standardInput(), standardOutput()}) {
    EXPECT_TRUE(GetHandleInformation(handleOf(own), &flags));
    EXPECT_EQ(flags, 0U);
  }
  EXPECT_EQ(standardInput(), pipe.readEnd.get());
  EXPECT_EQ(standardOutput(), pipe.writeEnd.get());
}

const std::pair<const wchar_t*, std::string> waitingHosts[] = {
    {L"", frameOf(R"({"source":"morva-chat","kind":"getStatus"})")},
    {L"--mcp", "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n"},
};

TEST(StandardStreams, OfTheHostHoldUpNoLibraryWhileItWaitsForAMessage) {
  const std::wstring library = besideTheTests(askingLibrary);
  const TestPipe pipe;
  SetStdHandle(STD_INPUT_HANDLE, handleOf(pipe.readEnd));
  EXPECT_FALSE(LoadLibraryW(library.c_str()));  // it does look
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
  for (const auto& [arguments, message] : waitingHosts) {
    const StartedHost host(arguments);
    host.ask(message);
    EXPECT_TRUE(loadsInto(host.process.get(), library));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
