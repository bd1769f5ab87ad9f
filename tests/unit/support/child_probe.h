#pragma once

#include "platform/process.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// The test program, started once more, plays a child process: with "--child-probe" as its first
// argument it does one of these instead of running tests.
//   exit CODE      ends with the code
//   describe ...   prints its arguments, its folder, the state of its standard input and which
//                  streams it has inherited, one line each
//   state          prints what processState says
//   wait           prints "ready" and stays until it is ended
//   crash KIND FOLDER
//                  lets its crashes be traced in the folder, then crashes: "access", "overflow"
//                  or "throw", for which std::terminate is called
//   strike         makes the host that serves the inspect pipe crash, on a thread of its own
//   explain        does what the program does without arguments on the console of this process;
//                  without one it prints nothing and ends with noConsoleCode
//   abandon        starts a "wait" of its own on its standard output and ends with 0 when that runs
inline constexpr unsigned noConsoleCode = 77;
std::wstring childProbe(const std::wstring& command);
[[noreturn]] void playChildProbe(const std::vector<std::string>& arguments);

// A child that was started by spawnHidden, with our end of its output.
struct Spawned {
  SpawnResult result = SpawnResult::failed;
  std::uint32_t systemError = 0;
  OwnedProcess process;
  OwnedStream output;
};
Spawned spawn(const std::wstring& commandLine, const std::wstring& folder = L"");
Spawned spawnProbe(const std::wstring& command, const std::wstring& folder = L"");
// A "wait" that is ready.
Spawned spawnWaiting();
OwnedProcess idleChild();

std::wstring ownExecutable();

}  // namespace media::win::chrome_inspect
