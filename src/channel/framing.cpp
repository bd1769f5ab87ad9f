#include "channel/framing.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "platform/locks.h"
#include "text/json_parse.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

static_assert(std::endian::native == std::endian::little);  // lengths are read and written in place

// What one call to the system reads at most, and what is held at most before it is written.
constexpr std::size_t readBytes = 65536;
constexpr std::size_t maxHeldBytes = 65536;

// To copy a longer body behind its head costs more than a second call.
constexpr std::size_t maxCopiedBytes = 65536;

std::atomic<std::size_t> outboundBodyLimit = maxOutboundBody;

struct StandardOutput {
  Mutex stdoutMutex;  // one whole frame at a time; no other lock is taken while it is held
  bool closed MORVA_GUARDED_BY(stdoutMutex) = false;  // it failed, or the host is about to end
  std::string held MORVA_GUARDED_BY(stdoutMutex);     // frames that wait for the next write
  std::atomic<bool> holds = false;                    // something is held
  std::atomic<bool> busy = false;

  bool write(std::string_view frames) MORVA_REQUIRES(stdoutMutex) {
    if (closed) return false;
    busy = true;
    closed = !writeAll(standardOutput(), frames.data(), frames.size());
    busy = false;
    return !closed;
  }
  bool writeHeld() MORVA_REQUIRES(stdoutMutex) {
    if (held.empty()) return !closed;
    holds = false;  // before the write, which may wait: nobody else is to see to these
    const bool written = write(held);
    held.clear();
    return written;
  }
};

StandardOutput& standardOutputState() {
  static StandardOutput& state = leaked<StandardOutput>();
  return state;
}

std::string frameOf(std::string_view body) {
  std::string frame(frameHeadBytes + body.size(), '\0');
  writeFrameHead(frame.data(), body.size());
  body.copy(frame.data() + frameHeadBytes, body.size());
  return frame;
}

}  // namespace

FrameReader::FrameReader(StreamId stream)
    : stream_(stream), buffer_(std::make_unique_for_overwrite<char[]>(readBytes)) {}

bool FrameReader::take(char* bytes, std::size_t size, std::string& error) {
  for (std::size_t got = 0;; got = 0) {
    const std::size_t here = unused().copy(bytes, size);
    begin_ += here;
    bytes += here;
    size -= here;
    if (size == 0) return true;
    // What is longer than the buffer is read where it belongs.
    const bool isLong = size >= readBytes;
    const ReadResult result =
        readSome(stream_, isLong ? bytes : buffer_.get(), isLong ? size : readBytes, got);
    if (result != ReadResult::data) {
      error = result == ReadResult::end ? "unexpected EOF" : "ReadFile failed";
      return false;
    }
    if (isLong) {
      bytes += got;
      size -= got;
    } else {
      begin_ = 0;
      end_ = got;
    }
  }
}

bool FrameReader::skip(std::size_t size, std::string& error) {
  std::array<char, 4096> nowhere;
  for (std::size_t piece = 0; size > 0; size -= piece) {
    piece = std::min(size, nowhere.size());
    if (!take(nowhere.data(), piece, error)) return false;
  }
  return true;
}

bool FrameReader::next(JsonBuffer& body, std::string& error) {
  std::array<char, frameHeadBytes> head = {};
  if (isStopped_) {
    error = "unexpected EOF";
    return false;
  }
  if (!take(head.data(), head.size(), error)) return false;
  const std::size_t length = readFrameHead(head.data());
  if (length > maxInboundBody) {
    error = "frame too large";
    return false;
  }
  constexpr std::string_view empty = "{}";
  try {
    body = JsonBuffer(length == 0 ? empty.size() : length);
  } catch (const std::bad_alloc&) {
    if (!skip(length, error)) return false;
    throw;
  }
  if (length == 0) empty.copy(body.data(), empty.size());
  return take(body.data(), length, error);
}

bool FrameReader::next(nlohmann::json& frame, std::string& error) {
  JsonBuffer body;
  return next(body, error) && parseJson(body.text(), frame, error) == ParseOutcome::ok;
}

bool FrameReader::hasNext() const {
  const std::string_view here = unused();
  return !isStopped_ && here.size() >= frameHeadBytes &&
         here.size() - frameHeadBytes >= readFrameHead(here.data());
}

bool writeAll(StreamId stream, const char* bytes, std::size_t size) {
  for (std::size_t done = 0, written = 0; done < size; done += written) {
    if (!writeSome(stream, bytes + done, size - done, written)) return false;
  }
  return true;
}

bool writeFrame(StreamId stream, std::string_view body) {
  if (body.size() > maxOutboundBody) return false;
  if (body.size() <= maxCopiedBytes) {
    const std::string frame = frameOf(body);
    return writeAll(stream, frame.data(), frame.size());
  }
  std::array<char, frameHeadBytes> head = {};
  writeFrameHead(head.data(), body.size());
  return writeAll(stream, head.data(), head.size()) && writeAll(stream, body.data(), body.size());
}

bool writeMessage(const nlohmann::json& message) { return writeMessageText(message.dump()); }

bool writeMessageText(std::string_view body) {
  if (body.size() > outboundLimit()) return false;
  return writeFrames(frameOf(body));
}

void writeFrameHead(char* bytes, std::size_t size) {
  const auto length = static_cast<std::uint32_t>(size);
  std::memcpy(bytes, &length, sizeof length);
}

std::size_t readFrameHead(const char* bytes) {
  std::uint32_t length = 0;
  std::memcpy(&length, bytes, sizeof length);
  return length;
}

bool writeFrames(std::string_view frames) {
  StandardOutput& output = standardOutputState();
  const Lock lock(output.stdoutMutex);
  return output.writeHeld() && output.write(frames);
}

bool holdFrame(std::string_view frame) {
  StandardOutput& output = standardOutputState();
  const Lock lock(output.stdoutMutex);
  if (output.held.size() + frame.size() > maxHeldBytes && !output.writeHeld()) return false;
  if (frame.size() > maxHeldBytes) return output.write(frame);
  output.held += frame;
  output.holds = true;
  return !output.closed;
}

bool hasHeldFrames() { return standardOutputState().holds; }

bool writeHeldFrames() {
  StandardOutput& output = standardOutputState();
  const Lock lock(output.stdoutMutex);
  return output.writeHeld();
}

bool outputIsBusy() { return standardOutputState().busy; }

bool closeOutput(std::uint32_t timeoutMs) {
  constexpr std::uint32_t pauseMs = 5;
  StandardOutput& output = standardOutputState();
  for (std::uint32_t waited = 0;; waited += pauseMs) {
    if (output.stdoutMutex.tryLock()) {
      output.closed = true;
      output.stdoutMutex.unlock();
      return true;
    }
    if (waited >= timeoutMs) return false;
    sleepMs(pauseMs);
  }
}

void limitFramesForBrowser() { outboundBodyLimit = maxBrowserBody; }

std::size_t outboundLimit() { return outboundBodyLimit; }

}  // namespace media::win::chrome_inspect
