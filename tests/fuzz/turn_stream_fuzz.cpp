// A turn's stream of any bytes: it is translated or refused with an exception, and what was
// collected can be sent.

#include "chat/turn_stream.h"

#include <exception>
#include <memory>
#include <string_view>

#include "channel/framing.h"
#include "fuzz_input.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {

void fuzz(std::string_view input) {
  static const bool limited = (limitFramesForBrowser(), true);  // so that long answers are split
  require(limited);
  Pieces pieces(input);
  TurnStream stream(std::make_shared<TurnEvents>("r"), "c");
  try {
    while (!pieces.rest().empty()) onStreamChunk(stream, pieces.next());
    finishStream(stream);
  } catch (const std::exception&) {  // ends the turn
  }
  require(isValidUtf8(stream.assistantText));
  (void)stream.usage.dump();
}

}  // namespace media::win::chrome_inspect
