#include "platform/sockets.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/loopback_socket.h"
#include "support/open_handles.h"

namespace media::win::chrome_inspect {
namespace {

// A port that nobody has, found by asking for one and giving it back.
std::uint16_t freePort() {
  std::uint16_t port = 0;
  (void)listenOnLoopback(port, 1);
  return port;
}

class Sockets : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(startSockets());
    ASSERT_TRUE(startSockets());
    ASSERT_TRUE(openSocket(listener_));
    port_ = freePort();
    ASSERT_TRUE(bindLoopback(listener_, port_));
    ASSERT_TRUE(listenOn(listener_, 8));
  }

  LoopbackSocket connect(OwnedSocket& served) {
    LoopbackSocket client = connectToLoopback(port_);
    EXPECT_TRUE(acceptOne(listener_, served));
    return client;
  }

  OwnedSocket listener_;
  std::uint16_t port_ = 0;
};

TEST_F(Sockets, CarryBytesBothWaysUntilTheEnd) {
  OwnedSocket served;
  LoopbackSocket client = connect(served);
  ASSERT_TRUE(sendTo(client, "hello"));
  char buffer[16];
  std::size_t got = 0;
  ASSERT_TRUE(receiveSome(served, buffer, sizeof buffer, got));
  EXPECT_EQ(std::string(buffer, got), "hello");
  std::size_t sent = 0;
  ASSERT_TRUE(sendSome(served, "back", 4, sent));
  EXPECT_EQ(sent, 4U);
  EXPECT_EQ(receiveFrom(client, buffer, sizeof buffer), 4U);
  client.reset();
  EXPECT_FALSE(receiveSome(served, buffer, sizeof buffer, got));
}

TEST_F(Sockets, TakeAtMostWhatFits) {
  OwnedSocket served;
  const LoopbackSocket client = connect(served);
  ASSERT_TRUE(sendTo(client, "abcdef"));
  char buffer[4] = {};
  std::size_t got = 0;
  ASSERT_TRUE(receiveSome(served, buffer, 3, got));
  EXPECT_EQ(std::string(buffer, got), "abc");
}

TEST_F(Sockets, TimeOutInMilliseconds) {
  OwnedSocket served;
  const LoopbackSocket client = connect(served);
  ASSERT_TRUE(setSocketTimeoutsMs(served, 1200));
  const auto started = std::chrono::steady_clock::now();
  char byte = 0;
  std::size_t got = 0;
  EXPECT_FALSE(receiveSome(served, &byte, 1, got));
  const std::chrono::duration<double> receiving = std::chrono::steady_clock::now() - started;
  EXPECT_GE(receiving.count(), 1.0);
  EXPECT_LT(receiving.count(), 3.0);
}

TEST_F(Sockets, TimeOutWhenNobodyTakesWhatIsSent) {
  OwnedSocket served;
  const LoopbackSocket client = connect(served);
  ASSERT_TRUE(setSocketTimeoutsMs(served, 500));
  const std::string much(262144, 'x');
  const auto started = std::chrono::steady_clock::now();
  std::size_t sent = 0;
  while (sendSome(served, much.data(), much.size(), sent)) {
    ASSERT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
  }
}

TEST_F(Sockets, HaveAPortForThemselvesWhileTheyListen) {
  OwnedSocket second;
  ASSERT_TRUE(openSocket(second));
  EXPECT_FALSE(bindLoopback(second, port_));
}

TEST_F(Sockets, CanBindAPortAgainAtOnce) {
  for (int i = 0; i < 5; ++i) {
    OwnedSocket served;
    const LoopbackSocket client = connect(served);
    served.reset();  // this side closes first
    listener_.reset();
    ASSERT_TRUE(openSocket(listener_));
    ASSERT_TRUE(bindLoopback(listener_, port_)) << i;
    ASSERT_TRUE(listenOn(listener_, 8));
  }
}

TEST_F(Sockets, AcceptFailsOnWhatDoesNotListen) {
  OwnedSocket idle;
  OwnedSocket served;
  ASSERT_TRUE(openSocket(idle));
  EXPECT_FALSE(acceptOne(idle, served));
  EXPECT_FALSE(served);
}

TEST_F(Sockets, AreClosedByTheirOwners) {
  {
    OwnedSocket served;
    const LoopbackSocket client = connect(served);
  }
  const std::size_t before = openHandleCount();
  for (int i = 0; i < 50; ++i) {
    OwnedSocket served;
    const LoopbackSocket client = connect(served);
  }
  EXPECT_LE(openHandleCount(), before + handlesOfTheSystem);
}

}  // namespace
}  // namespace media::win::chrome_inspect
