#include <gtest/gtest.h>

#include <string>

#include "platform/named_pipe.h"
#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

TEST(ProbePipe, DistinguishesAFreeNameAPipeThatWaitsAndOneThatServes) {
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
