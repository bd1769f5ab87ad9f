#include "toolserver/connection_threads.h"

#include "support/loopback_socket.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

// Connections made one after the other: the client's end and the one to be served.
class Connections {
 public:
  Connections() : listener_(listenOnLoopback(port_, 32)) {}

  OwnedSocket next(OwnedSocket& served) {
    OwnedSocket client = connectToLoopback(port_);
    served = OwnedSocket(acceptFrom(listener_).release());
    return client;
  }

 private:
  std::uint16_t port_ = 0;
  OwnedSocket listener_;
};

bool isClosed(const OwnedSocket& client) {
  char byte = 0;
  return receiveFrom(client, &byte, 1) == 0;
}

TEST(ConnectionThreads, ClosesTheSeventeenthAtOnce) {
  Connections connections;
  static auto& gate = leaked<Gate>();
  static auto& threads = leaked<ConnectionThreads>([](const OwnedSocket&) { gate.wait(); });
  std::vector<OwnedSocket> clients;
  for (std::size_t i = 0; i < maxConnections; ++i) {
    OwnedSocket served;
    clients.push_back(connections.next(served));
    EXPECT_EQ(threads.serve(std::move(served)), Serve::started);
  }
  OwnedSocket served;
  const OwnedSocket refused = connections.next(served);
  EXPECT_EQ(threads.serve(std::move(served)), Serve::full);
  EXPECT_TRUE(isClosed(refused));
  gate.open();
  for (const OwnedSocket& client : clients) EXPECT_TRUE(isClosed(client));
  // Whoever has seen the end of its connection finds a place.
  const OwnedSocket again = connections.next(served);
  EXPECT_EQ(threads.serve(std::move(served)), Serve::started);
  EXPECT_TRUE(isClosed(again));
}

TEST(ConnectionThreads, FreesThePlaceWhateverTheHandlerThrows) {
  Connections connections;
  static auto& calls = leaked<std::atomic<int>>(0);
  static auto& threads = leaked<ConnectionThreads>([](const OwnedSocket& connection) {
    std::size_t sent = 0;
    EXPECT_TRUE(sendSome(connection, "x", 1, sent));
    if (++calls % 2 == 0) throw std::runtime_error("handler");
    throw 7;
  });
  for (int i = 0; i < 200; ++i) {
    OwnedSocket served;
    const OwnedSocket client = connections.next(served);
    ASSERT_EQ(threads.serve(std::move(served)), Serve::started);
    char byte = 0;
    ASSERT_EQ(receiveFrom(client, &byte, 1), 1U) << i;
    ASSERT_TRUE(isClosed(client));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
