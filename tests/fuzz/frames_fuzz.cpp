// Any bytes on a stream of frames: each frame is refused or read, never more is taken than it says.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "channel/framing.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

// Pipes hold this much without a reader, so one thread can write and then read.
constexpr std::size_t pipeRoom = 60'000;

void check(bool holds) {
  if (!holds) std::abort();
}

// What the first frame of `bytes` should be, told from the bytes alone.
enum class Wanted { whole, cutOff, tooLarge };

Wanted firstFrame(std::string_view bytes, std::uint32_t& length) {
  if (bytes.size() < sizeof length) return Wanted::cutOff;
  std::memcpy(&length, bytes.data(), sizeof length);
  if (length > maxInboundBody) return Wanted::tooLarge;
  return bytes.size() - sizeof length < length ? Wanted::cutOff : Wanted::whole;
}

void readAll(StreamId stream, std::string_view bytes) {
  for (;;) {
    nlohmann::json frame = "before";
    std::string error;
    std::uint32_t length = 0;
    const Wanted wanted = firstFrame(bytes, length);
    const bool ok = readFrame(stream, frame, error);
    check(isValidUtf8(error));
    if (wanted != Wanted::whole) {
      check(!ok && error == (wanted == Wanted::cutOff ? "unexpected EOF" : "frame too large"));
      return;
    }
    if (ok) (void)frame.dump();  // what was read can be sent
    if (length == 0) check(ok && frame.dump() == "{}");
    if (!ok) check(frame == "before" && !error.empty());
    bytes.remove_prefix(sizeof length + length);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  const std::string_view bytes(reinterpret_cast<const char*>(data), std::min(size, pipeRoom));
  OwnedStream readEnd;
  OwnedStream writeEnd;
  check(makePipe(readEnd, writeEnd));
  check(writeAll(writeEnd.get(), bytes.data(), bytes.size()));
  writeEnd.reset();
  readAll(readEnd.get(), bytes);
  return 0;
}
