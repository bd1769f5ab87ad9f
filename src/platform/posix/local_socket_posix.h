#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>

namespace media::win::chrome_inspect {

// The address of a local socket in the abstract name space; its size, 0 when the name is too long.
// Such names begin with a NUL, vanish with their socket, and are apart in every network namespace
// (unix(7)).
inline socklen_t abstractAddress(const char* name, sockaddr_un& address) {
  const std::size_t length = std::strlen(name);
  if (length + 1 > sizeof address.sun_path) return 0;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, name, length);
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
}

}  // namespace media::win::chrome_inspect
