#pragma once

#include <cstdint>
#include <string>

#include "platform/sockets.h"

namespace media::win::chrome_inspect {

// Reads one request from `connection`, checks it and answers it; what the peer sends behind it is
// not read. May throw for want of memory; the connection is then good for nothing. Blocks: at most
// 5 s for each read or write, 10 s for the header block, 60 s for the request and as much again for
// the answer.
void handleConnection(const OwnedSocket& connection, std::int32_t port, const std::string& token);

}  // namespace media::win::chrome_inspect
