// The twin's own streams, command lines and paths.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>

#include "platform/clock.h"
#include "platform/posix/command_line_posix.h"
#include "platform/posix/path_text_posix.h"
#include "support/test_pipe.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

bool closesOnExec(StreamId stream) {
  return (fcntl(static_cast<int>(stream), F_GETFD) & FD_CLOEXEC) != 0;
}

TEST(ByteStream, NoChildInheritsPipesAndStandardStreams) {
  for (const bool isInputClosed : {false, true}) {  // whose number is then not to be used
    if (isInputClosed) ::close(STDIN_FILENO);
    const TestPipe pipe;
    for (const StreamId end : {pipe.readEnd.get(), pipe.writeEnd.get()}) {
      EXPECT_GT(end, STDERR_FILENO);
      EXPECT_TRUE(closesOnExec(end));
    }
    if (!isInputClosed) {
      takeStandardStreams();
      EXPECT_TRUE(closesOnExec(standardInput()));
      EXPECT_TRUE(closesOnExec(standardOutput()));
      EXPECT_NE(standardInput(), STDIN_FILENO);
      char byte = 0;
      EXPECT_EQ(::read(STDIN_FILENO, &byte, 1), 0);
    }
  }
}

std::atomic<int> signals = 0;

TEST(ReadSome, IsNotEndedByASignal) {
  struct sigaction action = {};
  action.sa_handler = [](int) { signals.fetch_add(1); };  // without SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const TestPipe pipe;
  TestThread disturber([reader = pthread_self(), &pipe] {
    // The thread sanitizer keeps one that comes just before the call until the next one ends it.
    while (signals.load() < 5) {
      pthread_kill(reader, SIGUSR1);
      sleepMs(1);
    }
    std::size_t written = 0;
    (void)writeSome(pipe.writeEnd.get(), "x", 1, written);
  });
  char byte = 0;
  std::size_t got = 0;
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::data);
  EXPECT_EQ(byte, 'x');
}

TEST(SplitCommandLine, TakesQuotesAwayAndSplitsAtBlanks) {
  const std::pair<std::wstring, std::vector<std::string>> cases[] = {
      {L"  a --b  c\td ", {"a", "--b", "c", "d"}},
      {L"\"/x y/cli.exe\" --port 1", {"/x y/cli.exe", "--port", "1"}},
      {L"--name=\"a b\"c \"\" \"/caf\u00e9\"", {"--name=a bc", "", "/caf\xc3\xa9"}},
      {L"", {}},
  };
  for (const auto& [line, words] : cases) EXPECT_EQ(splitCommandLine(line), words);
}

TEST(PathText, IsEmptyForWhatANulWouldCutShort) {
  EXPECT_EQ(pathText(L"/caf\u00e9"), "/caf\xc3\xa9");
  EXPECT_EQ(pathText(std::wstring(L"/a\0b", 4)), "");
}

}  // namespace
}  // namespace media::win::chrome_inspect
