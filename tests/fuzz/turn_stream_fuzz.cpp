// A turn's stream of any bytes: it is translated or refused with an exception, and what was
// collected can be sent.

#include "chat/turn_stream.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "silent_output.h"
#include "text/utf8.h"

namespace {

const SilentOutput silent;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  if (size == 0) return 0;
  const std::size_t piece = data[0] + std::size_t{1};
  const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  TurnStream stream;
  stream.runId = "r";
  stream.chatSessionId = "c";
  try {
    for (std::size_t at = 0; at < bytes.size(); at += piece)
      onStreamChunk(stream, bytes.substr(at, piece));
    finishStream(stream);
  } catch (const std::exception&) {  // ends the turn
  }
  if (!isValidUtf8(stream.assistantText)) std::abort();
  (void)stream.usage.dump();
  return 0;
}
