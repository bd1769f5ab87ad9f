#include "platform/posix/abortable_socket_posix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/clock.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int noTimeout = -1;

int restOf(std::uint64_t deadline) {
  const std::uint64_t now = tickCountMs();
  return deadline > now ? static_cast<int>(deadline - now) : 0;
}

bool wouldBlock() { return errno == EAGAIN || errno == EINTR; }

}  // namespace

bool AbortableSocket::open() {
  socket_ = awayFromStandardStreams(
      OwnedDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
  wakeUp_ = awayFromStandardStreams(OwnedDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
  return socket_ && wakeUp_;
}

void AbortableSocket::abort() {
  aborted_.store(true);
  (void)::eventfd_write(wakeUp_.get(), 1);  // fails only when it is readable already
}

bool AbortableSocket::waitFor(short events, int timeoutMs) const {
  const std::uint64_t deadline = tickCountMs() + static_cast<std::uint64_t>(std::max(timeoutMs, 0));
  pollfd watched[] = {{socket_.get(), events, 0}, {wakeUp_.get(), POLLIN, 0}};
  int ready = -1;
  do {
    if (aborted()) return false;
    ready = ::poll(watched, 2, timeoutMs == 0 ? noTimeout : restOf(deadline));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && watched[1].revents == 0;
}

bool AbortableSocket::connectTo(std::uint16_t port, int timeoutMs) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (aborted()) return false;
  if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return true;
  }
  // An interrupted connect goes on by itself and cannot be called again.
  if (errno != EINPROGRESS && errno != EINTR) return false;
  if (!waitFor(POLLOUT, timeoutMs)) return false;
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool AbortableSocket::sendAll(std::string_view bytes, int timeoutMs) {
  while (!bytes.empty()) {
    if (!waitFor(POLLOUT, timeoutMs)) return false;
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    } else if (!wouldBlock()) {
      return false;
    }
  }
  return !aborted();
}

bool AbortableSocket::receiveSome(char* buffer, std::size_t capacity, int timeoutMs,
                                  std::size_t& got) {
  for (;;) {
    if (!waitFor(POLLIN, timeoutMs)) return false;
    const ssize_t count = ::recv(socket_.get(), buffer, capacity, 0);
    if (count >= 0) {
      got = static_cast<std::size_t>(count);
      return !aborted();
    }
    if (!wouldBlock()) return false;
  }
}

}  // namespace media::win::chrome_inspect
