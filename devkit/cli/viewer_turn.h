// One chat turn of the stand-in: thinking, the answer word by word, usage.
#pragma once

#include <string_view>

#include "viewer_behaviour.h"
#include "viewer_system.h"

namespace viewer_cli {

// Answers a completions request as a stream that ends with the connection. `body` is the request's
// JSON; of it only the last "content" is looked at.
void streamTurn(Socket connection, std::string_view body, const Behaviour& behaviour);

// Every stream that is running ends before its next word.
void cancelTurns();

}  // namespace viewer_cli
