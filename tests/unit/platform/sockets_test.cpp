#include "platform/sockets.h"

#include "platform/clock.h"
#include "support/loopback_socket.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

class Sockets : public testing::Test {
 protected:
  Sockets() { listen(); }

  void listen() {
    listener_.reset();
    EXPECT_TRUE(openSocket(listener_) && bindLoopback(listener_, port_) && listenOn(listener_, 8));
  }

  OwnedSocket connect(OwnedSocket& served) {
    OwnedSocket client = connectToLoopback(port_);
    EXPECT_TRUE(acceptOne(listener_, served));
    return client;
  }

  const std::uint16_t port_ = portWithoutListener();
  OwnedSocket listener_;
};

TEST_F(Sockets, CarryBytesBothWaysUntilTheEndAndNoMoreThanFits) {
  OwnedSocket served;
  OwnedSocket client = connect(served);
  EXPECT_TRUE(sendsAtOnce(client) && sendsAtOnce(served));
  ASSERT_TRUE(sendTo(client, "hello"));
  char buffer[16];
  for (const std::string wanted : {"hel", "lo"}) {
    std::size_t got = 0;
    ASSERT_TRUE(receiveSome(served, buffer, 3, got));
    EXPECT_EQ(std::string(buffer, got), wanted);
  }
  std::size_t count = 0;
  ASSERT_TRUE(sendSome(served, "back", 4, count));
  EXPECT_EQ(count, 4U);
  EXPECT_EQ(receiveFrom(client, buffer, sizeof buffer), 4U);
  client.reset();
  EXPECT_FALSE(receiveSome(served, buffer, sizeof buffer, count));
}

TEST_F(Sockets, TimeOutInMilliseconds) {
  OwnedSocket served;
  const OwnedSocket client = connect(served);
  ASSERT_TRUE(setSocketTimeoutsMs(served, 600));
  std::string much(262144, 'x');
  std::size_t count = 0;
  const std::uint64_t started = tickCountMs();
  EXPECT_FALSE(receiveSome(served, much.data(), 1, count));
  EXPECT_GE(tickCountMs() - started, 500U);
  EXPECT_LT(tickCountMs() - started, 3000U);
  while (sendSome(served, much.data(), much.size(), count)) {  // nobody takes it
    ASSERT_LT(tickCountMs() - started, 30'000U);
  }
}

TEST_F(Sockets, HaveAPortForThemselvesAndAgainAtOnceAndConnectToNothingElse) {
  OwnedSocket second;
  OwnedSocket served;
  ASSERT_TRUE(openSocket(second));
  EXPECT_FALSE(bindLoopback(second, port_));
  EXPECT_FALSE(acceptOne(second, served));
  EXPECT_FALSE(served);
  for (int i = 0; i < 5; ++i) {
    const OwnedSocket client = connect(served);
    served.reset();  // this side closes first
    listen();
  }
  listener_.reset();
  EXPECT_FALSE(connectLoopback(second, port_));
}

TEST_F(Sockets, AreClosedByTheirOwners) {
  std::size_t before = 0;
  for (int i = 0; i < 50; ++i) {
    OwnedSocket served;
    const OwnedSocket client = connect(served);
    if (i == 0) before = openHandleCount();
  }
  EXPECT_LE(openHandleCount(), before + handlesOfTheSystem);
}

}  // namespace
}  // namespace media::win::chrome_inspect
