#include "channel/framing.h"

#include <atomic>
#include <bit>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "text/json_parse.h"
#include "text/leaked.h"
#include "text/locks.h"

namespace media::win::chrome_inspect {
namespace {

static_assert(std::endian::native == std::endian::little);  // lengths are read and written in place

std::atomic<std::size_t> outboundBodyLimit = maxOutboundBody;

struct StandardOutput {
  Mutex stdoutMutex;  // one whole frame at a time; no other lock is taken while it is held
  bool closed MORVA_GUARDED_BY(stdoutMutex) = false;  // it failed, or the host is about to end
  std::atomic<bool> busy = false;
};

StandardOutput& standardOutputState() {
  static StandardOutput& state = leaked<StandardOutput>();
  return state;
}

bool readExactly(StreamId stream, char* buffer, std::size_t size, std::string& error) {
  for (std::size_t done = 0, got = 0; done < size; done += got) {
    const ReadResult result = readSome(stream, buffer + done, size - done, got);
    if (result != ReadResult::data) {
      error = result == ReadResult::end ? "unexpected EOF" : "ReadFile failed";
      return false;
    }
  }
  return true;
}

std::string frameOf(std::string_view body) {
  std::string frame(frameHeadBytes + body.size(), '\0');
  writeFrameHead(frame.data(), body.size());
  body.copy(frame.data() + frameHeadBytes, body.size());
  return frame;
}

bool allocate(std::string& body, std::size_t size) {
  try {
    body.assign(size, '\0');
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

bool readFrameBody(StreamId stream, std::string& body, std::string& error) {
  std::uint32_t length = 0;
  if (!readExactly(stream, reinterpret_cast<char*>(&length), sizeof length, error)) return false;
  if (length == 0) {
    body = "{}";
    return true;
  }
  if (length > maxInboundBody) {
    error = "frame too large";
    return false;
  }
  if (!allocate(body, length)) {
    error = "out of memory";
    return false;
  }
  return readExactly(stream, body.data(), body.size(), error);
}

bool readFrame(StreamId stream, nlohmann::json& frame, std::string& error) {
  std::string body;
  return readFrameBody(stream, body, error) && parseJson(body, frame, error) == ParseOutcome::ok;
}

bool writeAll(StreamId stream, const char* bytes, std::size_t size) {
  for (std::size_t done = 0, written = 0; done < size; done += written) {
    if (!writeSome(stream, bytes + done, size - done, written)) return false;
  }
  return true;
}

bool writeFrame(StreamId stream, std::string_view body) {
  if (body.size() > maxOutboundBody) return false;
  const std::string frame = frameOf(body);
  return writeAll(stream, frame.data(), frame.size());
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

bool writeFrames(std::string_view frames) {
  StandardOutput& output = standardOutputState();
  const Lock lock(output.stdoutMutex);
  if (output.closed) return false;
  output.busy = true;
  output.closed = !writeAll(standardOutput(), frames.data(), frames.size());
  output.busy = false;
  return !output.closed;
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
