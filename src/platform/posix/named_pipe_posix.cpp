#include "platform/named_pipe.h"

#include <poll.h>

#include "platform/byte_stream.h"
#include "platform/posix/descriptor_posix.h"
#include "platform/posix/local_socket_posix.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int waitingClients = 16;

int pipeDescriptor(StreamId pipe) { return static_cast<int>(pipe); }

OwnedDescriptor listenAs(const char* name) {
  sockaddr_un address = {};
  const socklen_t size = abstractAddress(name, address);
  OwnedDescriptor listener =
      awayFromStandardStreams(OwnedDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
  if (size == 0 || !listener ||
      bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      listen(listener.get(), waitingClients) != 0) {
    return OwnedDescriptor();
  }
  return listener;
}

}  // namespace

bool createPipeInstance(const char* name, OwnedStream& pipe) {
  static const OwnedDescriptor& listener = leaked<OwnedDescriptor>(listenAs(name));
  if (!listener) return false;
  OwnedDescriptor instance(fcntl(listener.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!instance) return false;
  pipe.reset(instance.release());
  return true;
}

bool connectPipeClient(OwnedStream& pipe) {
  OwnedDescriptor client = awayFromStandardStreams(OwnedDescriptor(retryInterrupted(
      [&] { return accept4(pipeDescriptor(pipe.get()), nullptr, nullptr, SOCK_CLOEXEC); })));
  if (!client) return false;
  pipe.reset(client.release());
  return true;
}

void flushPipe(StreamId /*pipe*/) {}

void disconnectPipe(StreamId pipe) { shutdown(pipeDescriptor(pipe), SHUT_RDWR); }

bool isPipeClientGone(StreamId pipe) {
  pollfd looked = {pipeDescriptor(pipe), 0, 0};  // asks for nothing: the end is always reported
  return poll(&looked, 1, 0) > 0 && (looked.revents & POLLHUP) != 0;
}

void CallerTraits::close(Raw /*raw*/) {}

OwnedCaller currentCaller() { return OwnedCaller(1); }  // calls are broken off by their pipe

bool breakOffPipeCall(const OwnedCaller& /*caller*/, StreamId pipe) {
  return shutdown(pipeDescriptor(pipe), SHUT_RDWR) == 0;
}

PipeState probePipe(const std::string& /*name*/) { return PipeState::unknown; }

}  // namespace media::win::chrome_inspect
