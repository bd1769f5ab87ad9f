#include <sys/time.h>

#include <csignal>
#include <thread>

#include "platform/sockets.h"
#include "support/loopback_socket.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// A signal each 100 us, for as long as it lives, that interrupts what waits.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction ignored = {};  // without SA_RESTART
    ignored.sa_handler = [](int) {};
    sigaction(SIGALRM, &ignored, &before_);
    every({0, 100});
  }
  ~Interruptions() {
    every({0, 0});
    sigaction(SIGALRM, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

 private:
  static void every(timeval time) {
    const itimerval timer = {time, time};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  struct sigaction before_ = {};
};

TEST(ConnectLoopback, IsNotEndedByASignal) {
  const std::uint16_t port = portWithoutListener();
  OwnedSocket listener;
  ASSERT_TRUE(openSocket(listener) && bindLoopback(listener, port) && listenOn(listener, 0));
  OwnedSocket waiting, client;
  ASSERT_TRUE(openSocket(waiting) && connectLoopback(waiting, port));
  ASSERT_TRUE(openSocket(client));
  const Interruptions interruptions;
  // There is room for one that waits, so this one is tried again by the system, a second later.
  std::thread accepting([&] {
    OwnedSocket served;
    EXPECT_TRUE(acceptOne(listener, served));
  });
  EXPECT_TRUE(connectLoopback(client, port));
  accepting.join();
}

}  // namespace
}  // namespace media::win::chrome_inspect
