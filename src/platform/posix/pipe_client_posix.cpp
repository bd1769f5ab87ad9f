#include "platform/pipe_client.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>

#include "platform/byte_stream.h"
#include "platform/owned.h"
#include "platform/posix/descriptor_posix.h"
#include "platform/posix/local_socket_posix.h"

namespace media::win::chrome_inspect {
namespace {

template <class Traits>
int descriptorOf(const Owned<Traits>& owner) {
  return static_cast<int>(owner.get());
}

// Waits until the socket can be read, or written.
PipeCall waitFor(const OwnedStream& pipe, short events, const OwnedSignal& signal,
                 std::uint32_t timeoutMs) {
  pollfd waited[] = {{descriptorOf(pipe), events, 0}, {descriptorOf(signal), POLLIN, 0}};
  const int ready = retryInterrupted([&] { return poll(waited, 2, static_cast<int>(timeoutMs)); });
  if (ready < 0) return PipeCall::ended;
  if (ready == 0) return PipeCall::timedOut;
  return waited[1].revents != 0 ? PipeCall::givenUp : PipeCall::done;
}

PipeCall outcomeOf(ssize_t count, std::size_t& done) {
  if (count <= 0) return PipeCall::ended;
  done = static_cast<std::size_t>(count);
  return PipeCall::done;
}

}  // namespace

void SignalTraits::close(Raw raw) { ::close(static_cast<int>(raw)); }

bool makeSignal(OwnedSignal& signal) {
  OwnedDescriptor event = awayFromStandardStreams(OwnedDescriptor(eventfd(0, EFD_CLOEXEC)));
  if (!event) return false;
  signal.reset(event.release());
  return true;
}

void raiseSignal(const OwnedSignal& signal) { (void)eventfd_write(descriptorOf(signal), 1); }

bool waitForSignal(const OwnedSignal& signal, std::uint32_t timeoutMs) {
  pollfd waited = {descriptorOf(signal), POLLIN, 0};
  return retryInterrupted([&] { return poll(&waited, 1, static_cast<int>(timeoutMs)); }) > 0;
}

void TurnTraits::close(Raw /*raw*/) {}

PipeCall takeTurn(const char* /*name*/, OwnedTurn& /*turn*/, const OwnedSignal& /*signal*/,
                  std::uint32_t /*timeoutMs*/) {
  return PipeCall::done;
}

PipeOpening openPipe(const char* name, OwnedStream& pipe) {
  sockaddr_un address = {};
  const socklen_t size = abstractAddress(name, address);
  OwnedDescriptor client = awayFromStandardStreams(
      OwnedDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
  if (size == 0 || !client) return PipeOpening::failed;
  if (connect(client.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    if (errno == EAGAIN) return PipeOpening::busy;
    return errno == ECONNREFUSED ? PipeOpening::absent : PipeOpening::failed;
  }
  pipe.reset(client.release());
  return PipeOpening::open;
}

PipeCall readPipe(const OwnedStream& pipe, char* buffer, std::size_t capacity, std::size_t& got,
                  const OwnedSignal& signal, std::uint32_t timeoutMs) {
  const PipeCall ready = waitFor(pipe, POLLIN, signal, timeoutMs);
  if (ready != PipeCall::done) return ready;
  return outcomeOf(retryInterrupted([&] { return ::read(descriptorOf(pipe), buffer, capacity); }),
                   got);
}

PipeCall writePipe(const OwnedStream& pipe, const char* bytes, std::size_t size,
                   std::size_t& written, const OwnedSignal& signal, std::uint32_t timeoutMs) {
  const PipeCall ready = waitFor(pipe, POLLOUT, signal, timeoutMs);
  if (ready != PipeCall::done) return ready;
  return outcomeOf(retryInterrupted([&] { return ::write(descriptorOf(pipe), bytes, size); }),
                   written);
}

}  // namespace media::win::chrome_inspect
