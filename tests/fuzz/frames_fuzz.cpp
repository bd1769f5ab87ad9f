// Any bytes on a stream of frames: each frame is refused or read, never more is taken than it says.

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "channel/framing.h"
#include "fuzz_input.h"
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
    if (ok) (void)frame.dump();  // what was read can be sent
    if (length == 0) require(ok && frame.dump() == "{}");
    if (!ok) require(frame == "before" && !error.empty());
    bytes.remove_prefix(sizeof length + length);
  }
}

}  // namespace

void fuzz(std::string_view input) {
  input = input.substr(0, pipeRoom);
  OwnedStream readEnd;
  OwnedStream writeEnd;
  require(makePipe(readEnd, writeEnd));
  require(writeAll(writeEnd.get(), input.data(), input.size()));
  writeEnd.reset();
  readAll(FrameReader(readEnd.get()), input);
}

}  // namespace media::win::chrome_inspect
