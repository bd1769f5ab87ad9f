// On the twin, where the end of a blocked call can be had with a socket in place of the pipe.

#include "host/pipe_watchdog.h"
#include "support/loopback_socket.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(PipeWatchdog, BreaksOffACallOfEachGuardAndOfNoLaterTime) {
  std::uint16_t port = 0;
  const OwnedSocket listener = listenOnLoopback(port, 4);
  PipeWatchdog watchdog;
  for (int round = 0; round < 2; ++round) {
    const OwnedSocket client = connectToLoopback(port);
    const OwnedSocket served = acceptFrom(listener);
    char byte = 0;
    std::size_t got = 0;
    {
      const PipeWatchdog::Guard patient(watchdog, served.get(), 30'000);
      ASSERT_TRUE(sendTo(client, "a"));
      EXPECT_EQ(readSome(served.get(), &byte, 1, got), ReadResult::data);
    }
    const PipeWatchdog::Guard guard(watchdog, served.get(), 10);
    EXPECT_NE(readSome(served.get(), &byte, 1, got), ReadResult::data);  // returns
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
