// The HTTP interface of the stand-in: readiness, models, a chat turn, consent, registrations.
#pragma once

#include <cstdint>

#include "viewer_behaviour.h"
#include "viewer_system.h"

namespace viewer_cli {

// Reads one request, answers it and closes the connection. Blocks for as long as the answer takes;
// one thread per connection.
void serveConnection(Socket connection, const Behaviour& behaviour, std::uint16_t port);

}  // namespace viewer_cli
