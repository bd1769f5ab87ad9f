#include "support/child_probe.h"

#include "common/paths.h"
#include "host/user_command.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/crash_dump.h"
#include "platform/files.h"
#include "platform/process_control.h"
#include "platform/system_facts.h"
#include "platform/threads.h"
#include "support/test_pipe.h"
#include "support/test_system.h"
#include "support/testing.h"
#include "text/leaked.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t longEnoughMs = 60'000;  // an abandoned probe does not stay for ever

std::string inputState() {
  char byte = 0;
  std::size_t got = 0;
  const ReadResult result = readSome(standardInput(), &byte, 1, got);
  return result == ReadResult::data ? "data" : result == ReadResult::end ? "end" : "failed";
}

void describe(const std::vector<std::string>& arguments) {
  const std::string streams = inheritedStreams();
  std::string text = "arguments";
  for (const std::string& argument : arguments) text += " [" + argument + "]";
  text += "\nfolder " + std::filesystem::current_path().string();
  text += "\ninput " + inputState() + "\nstreams " + streams + "\n";
  (void)writeAll(standardOutput(), text);
}

unsigned abandon() {
  OwnedProcess child;
  std::uint32_t error = 0;
  const SpawnResult spawned = spawnHidden(childProbe(L"wait"), L"", standardOutput(), child, error);
  return spawned == SpawnResult::ok ? 0 : 1;
}

std::wstring& crashFolder() {
  static std::wstring& folder = leaked<std::wstring>();
  return folder;
}

int deeper(int depth) {
  volatile char room[4096] = {};
  room[0] = static_cast<char>(depth);
  return depth < 0 ? room[0] : deeper(depth + 1) + room[0];
}

void crash(const std::string& kind, const std::string& folder) {
  crashFolder() = toWide(folder);
  traceCrashes({joinPath(crashFolder(), L"crash-0.1.0-"), [] { (void)makeFolder(crashFolder()); },
                [] { (void)writeWholeFile(joinPath(crashFolder(), L"afterwards"), "x"); }});
  static int* volatile nowhere = nullptr;
  if (kind == "access") *nowhere = 1;
  if (kind == "overflow") std::exit(deeper(0));
  if (kind == "throw") (void)startThread([] { throw std::runtime_error("nobody handles this"); });
  sleepMs(longEnoughMs);
}

}  // namespace

void playChildProbe(const std::vector<std::string>& arguments) {
  const std::string& command = arguments.at(2);
  unsigned code = 0;
  if (command == "exit") code = static_cast<unsigned>(std::stoul(arguments.at(3)));
  if (command == "describe") describe(arguments);
  if (command == "abandon") code = abandon();
  if (command == "explain") {
    useConsoleInput();
    code = isConsole(standardInput()) ? static_cast<unsigned>(runUserCommand({})) : noConsoleCode;
  }
  if (command == "crash") crash(arguments.at(3), arguments.at(4));
  if (command == "strike") code = strikeHost() ? 0 : 1;
  if (command == "state") (void)writeAll(standardOutput(), processState());
  if (command == "wait") {
    (void)writeAll(standardOutput(), "ready\n");
    sleepMs(longEnoughMs);
  }
  exitProcess(code);
}

Spawned spawn(const std::wstring& commandLine, const std::wstring& folder) {
  TestPipe pipe;
  Spawned spawned;
  spawned.result =
      spawnHidden(commandLine, folder, pipe.writeEnd.get(), spawned.process, spawned.systemError);
  spawned.output = std::move(pipe.readEnd);
  return spawned;
}

Spawned spawnProbe(const std::wstring& command, const std::wstring& folder) {
  return spawn(childProbe(command), folder);
}

Spawned spawnWaiting() {
  Spawned child = spawnProbe(L"wait");
  char line[16];
  std::size_t got = 0;
  EXPECT_EQ(child.result, SpawnResult::ok) << child.systemError;
  EXPECT_EQ(readSome(child.output.get(), line, sizeof line, got), ReadResult::data);
  EXPECT_EQ(std::string(line, got), "ready\n");
  return child;
}

OwnedProcess idleChild() { return std::move(spawnWaiting().process); }

std::wstring childProbe(const std::wstring& command) {
  return L"\"" + ownExecutable() + L"\" --child-probe " + command;
}

std::wstring ownExecutable() {
  std::wstring path;
  EXPECT_TRUE(ownProgramPath(path));
  return path;
}

}  // namespace media::win::chrome_inspect
