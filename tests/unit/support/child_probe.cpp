#include "support/child_probe.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "platform/process_control.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t longEnoughMs = 60'000;  // an abandoned probe does not stay for ever

void print(const std::string& text) {
  std::size_t written = 0;
  for (std::size_t done = 0; done < text.size(); done += written) {
    if (!writeSome(standardOutput(), text.data() + done, text.size() - done, written)) return;
  }
}

const char* inputState() {
  char byte = 0;
  std::size_t got = 0;
  switch (readSome(standardInput(), &byte, 1, got)) {
    case ReadResult::data:
      return "data";
    case ReadResult::end:
      return "end";
    default:
      return "failed";
  }
}

void describe(const std::vector<std::string>& arguments) {
  const std::string streams = inheritedStreams();
  std::string text = "arguments";
  for (const std::string& argument : arguments) text += " [" + argument + "]";
  text += "\nfolder " + std::filesystem::current_path().string();
  text += std::string("\ninput ") + inputState() + "\nstreams " + streams + "\n";
  print(text);
}

unsigned abandon() {
  OwnedProcess child;
  std::uint32_t error = 0;
  const SpawnResult spawned = spawnHidden(childProbe(L"wait"), L"", standardOutput(), child, error);
  return spawned == SpawnResult::ok ? 0 : 1;
}

[[noreturn]] void play(const std::vector<std::string>& arguments) {
  const std::string& command = arguments.at(2);
  unsigned code = 0;
  if (command == "exit") code = static_cast<unsigned>(std::stoul(arguments.at(3)));
  if (command == "describe") describe(arguments);
  if (command == "abandon") code = abandon();
  if (command == "wait") {
    print("ready\n");
    sleepMs(longEnoughMs);
  }
  exitProcess(code);
}

// Before main, so that the test framework never sees these arguments.
[[maybe_unused]] const bool notAProbe = [] {
  const std::vector<std::string> arguments = ownArguments();
  if (arguments.size() > 2 && arguments[1] == "--child-probe") play(arguments);
  return true;
}();

}  // namespace

Spawned spawn(const std::wstring& commandLine, const std::wstring& folder) {
  Spawned spawned;
  OwnedStream writeEnd;
  EXPECT_TRUE(makePipe(spawned.output, writeEnd));
  spawned.result =
      spawnHidden(commandLine, folder, writeEnd.get(), spawned.process, spawned.systemError);
  return spawned;
}

Spawned spawnProbe(const std::wstring& command, const std::wstring& folder) {
  return spawn(childProbe(command), folder);
}

std::wstring childProbe(const std::wstring& command) {
  return L"\"" + ownExecutable() + L"\" --child-probe " + command;
}

}  // namespace media::win::chrome_inspect
