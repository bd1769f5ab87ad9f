// Any bytes on a stream of frames: each frame is refused or read, never more is taken than it says,
// and what was read comes back the same when it is written.

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "channel/framing.h"
#include "fuzz_input.h"
#include "text/json_text.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

// Pipes hold this much without a reader, so one thread can write and then read.
constexpr std::size_t pipeRoom = 60'000;

// What the first frame of `bytes` should be, told from the bytes alone.
enum class Wanted { whole, cutOff, tooLarge };

Wanted firstFrame(std::string_view bytes, std::uint32_t& length) {
  if (bytes.size() < sizeof length) return Wanted::cutOff;
  std::memcpy(&length, bytes.data(), sizeof length);
  if (length > maxInboundBody) return Wanted::tooLarge;
  return bytes.size() - sizeof length < length ? Wanted::cutOff : Wanted::whole;
}

void checkWriting(const nlohmann::json& frame) {
  const std::string body = dumpJson(frame);
  std::string whole(frameHeadBytes, '\0');
  writeFrameHead(whole.data(), body.size());
  whole += body;
  require(holdFrame(whole) && writeHeldFrames() && !hasHeldFrames() && !outputIsBusy());
  if (2 * whole.size() > pipeRoom) return;
  OwnedStream readEnd;
  OwnedStream writeEnd;
  require(makePipe(readEnd, writeEnd));
  require(writeFrame(writeEnd.get(), body) && writeMessage(frame));
  require(writeAll(writeEnd.get(), whole.data(), whole.size()));
  FrameReader reader(readEnd.get());
  nlohmann::json again;
  std::string error;
  require(reader.next(again, error) && again == frame && reader.hasNext());
  require(reader.next(again, error) && again == frame && !reader.hasNext());
}

void readAll(FrameReader reader, std::string_view bytes) {
  for (;;) {
    nlohmann::json frame = "before";
    std::string error;
    std::uint32_t length = 0;
    const Wanted wanted = firstFrame(bytes, length);
    const bool ok = reader.next(frame, error);
    require(isValidUtf8(error));
    if (wanted != Wanted::whole) {
      require(!ok && error == (wanted == Wanted::cutOff ? "unexpected EOF" : "frame too large"));
      return;
    }
    if (ok) checkWriting(frame);
    if (length == 0) require(ok && frame.dump() == "{}");
    if (!ok) require(frame == "before" && !error.empty());
    bytes.remove_prefix(sizeof length + length);
  }
}

}  // namespace

void fuzz(std::string_view input) {
  static const bool closedAtTheEnd =
      std::atexit([] { require(closeOutput(0) && !writeMessage({}) && !writeHeldFrames()); }) == 0;
  require(closedAtTheEnd);
  input = input.substr(0, pipeRoom);
  OwnedStream readEnd;
  OwnedStream writeEnd;
  require(makePipe(readEnd, writeEnd));
  require(writeAll(writeEnd.get(), input.data(), input.size()));
  writeEnd.reset();
  readAll(FrameReader(readEnd.get()), input);
}

}  // namespace media::win::chrome_inspect
