#include "platform/pipe_client.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* name = R"(\\.\pipe\morva-turn-test)";

TEST(TakeTurn, IsOneThreadsAtATimeAndIsGivenBack) {
  OwnedSignal never;
  OwnedSignal raised;
  ASSERT_TRUE(makeSignal(never) && makeSignal(raised));
  raiseSignal(raised);
  OwnedTurn first;
  ASSERT_EQ(takeTurn(name, first, never, 0), PipeCall::done);
  TestThread([&] {
    OwnedTurn second;
    EXPECT_EQ(takeTurn(name, second, never, 10), PipeCall::timedOut);
    EXPECT_EQ(takeTurn(name, second, raised, 30'000), PipeCall::givenUp);
    EXPECT_FALSE(second);
  }).join();
  first.reset();
  TestThread([&] {
    OwnedTurn second;
    EXPECT_EQ(takeTurn(name, second, never, 0), PipeCall::done);
  }).join();
}

}  // namespace
}  // namespace media::win::chrome_inspect
