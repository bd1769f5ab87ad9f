#include <windows.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/owned.h"
#include "platform/pipe_probe.h"

namespace media::win::chrome_inspect {
namespace {

struct HandleTraits {
  using Raw = HANDLE;
  static Raw none() { return INVALID_HANDLE_VALUE; }
  static bool valid(Raw raw) { return raw != INVALID_HANDLE_VALUE; }
  static void close(Raw raw) { CloseHandle(raw); }
};
using OwnedHandle = Owned<HandleTraits>;

TEST(ProbePipe, TellsAFreeNameFromAPipeThatWaitsAndOneThatServes) {
  const std::string name = R"(\\.\pipe\morva-unit-)" + std::to_string(GetCurrentProcessId());
  EXPECT_EQ(probePipe(name), PipeState::absent);
  const OwnedHandle server(CreateNamedPipeA(
      name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_NOWAIT, 1, 64, 64, 5000, nullptr));
  ASSERT_TRUE(server);
  (void)ConnectNamedPipe(server.get(), nullptr);  // does not wait, and says so
  EXPECT_EQ(probePipe(name), PipeState::listening);
  const OwnedHandle client(CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                       OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(client);
  EXPECT_EQ(probePipe(name), PipeState::busy);
}

}  // namespace
}  // namespace media::win::chrome_inspect
