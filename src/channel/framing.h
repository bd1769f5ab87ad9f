#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "platform/byte_stream.h"
#include "text/json_view.h"

// Frames: a 4-byte little-endian length, then that many bytes of UTF-8 JSON. Spoken with the
// browser on standard input and output (Chrome's native messaging), and with local programs on the
// inspect pipe. Nothing else in the program writes to standard output.
namespace media::win::chrome_inspect {

// Largest body that is taken, in bytes, inclusive: what one message can make us allocate.
inline constexpr std::uint32_t maxInboundBody = 16 * 1024 * 1024;

// Largest bodies that are sent, inclusive. Chrome closes the channel on a longer frame than its
// own.
inline constexpr std::size_t maxOutboundBody = 0x7FFFFFFF;
inline constexpr std::size_t maxBrowserBody = 1024 * 1024;

// Reads the frames of one stream. It takes what is there, so several short ones come with one call
// to the system. Threads: one at a time. The caller keeps the stream open and goes on owning it.
class FrameReader {
 public:
  explicit FrameReader(StreamId stream);

  // Reads the body of the next frame, blocking until it is whole; a length of 0 means "{}".
  // Failure: false, and `error` is "unexpected EOF", "ReadFile failed" or "frame too large". The
  // stream is then out of step; read no more from it. Throws std::bad_alloc; then it is in step,
  // and the frame is lost.
  bool next(JsonBuffer& body, std::string& error);

  // The same, parsed. Failure may also be a parse error of text/json_parse.h, after which the
  // stream is still in step.
  bool next(nlohmann::json& frame, std::string& error);

  // Whether the next frame is here as a whole, so that reading it waits for nothing.
  bool hasNext() const;

  // From now on the stream counts as ended.
  void stop() { isStopped_ = true; }

 private:
  std::string_view unused() const { return {buffer_.get() + begin_, end_ - begin_}; }
  bool take(char* bytes, std::size_t size, std::string& error);
  bool skip(std::size_t size, std::string& error);

  StreamId stream_;
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;  // of what was read and is not used yet
  std::size_t end_ = 0;
  bool isStopped_ = false;
};

// Writes all of `bytes`, in as many calls as it takes; no bytes succeed at once.
bool writeAll(StreamId stream, const char* bytes, std::size_t size);

// Writes one frame to `stream` with as few calls as it takes. False when the body is longer than
// `maxOutboundBody` (nothing is written) or the stream failed. Not for standard output.
bool writeFrame(StreamId stream, std::string_view body);

// Sends `message` to the extension as one whole frame. False when it is longer than
// `outboundLimit()` (nothing is written) or standard output failed, now or before: after a partial
// frame the browser could not make sense of another one.
// Throws nlohmann::json::type_error when a string in it is not UTF-8. Threads: any.
bool writeMessage(const nlohmann::json& message);

// The same for a message that is already serialised.
bool writeMessageText(std::string_view body);

// The same for frames that are composed already, whole and one behind the other, none longer than
// allowed: written at once.
bool writeFrames(std::string_view frames);

// The same for a frame that is one of many: it may wait for the next write, whoever's, and goes out
// ahead of that. The caller calls `writeHeldFrames` before it does anything that takes its time.
bool holdFrame(std::string_view frame);
bool writeHeldFrames();

// Whether frames are held; waits for nobody who writes.
bool hasHeldFrames();

// What stands in front of a body of `size` bytes, written to the `frameHeadBytes` at `bytes`, and
// read from them.
inline constexpr std::size_t frameHeadBytes = 4;
void writeFrameHead(char* bytes, std::size_t size);
std::size_t readFrameHead(const char* bytes);

// Whether a frame is being written to the extension at this moment.
bool outputIsBusy();

// Lets the frame that is being written come to its end, waiting up to `timeoutMs`, and none begin
// after it: writing fails from then on. False when it did not come to its end in time.
bool closeOutput(std::uint32_t timeoutMs);

// From now on no frame to the extension exceeds what Chrome takes. Called at most once, before any
// thread starts, when a browser started the host.
void limitFramesForBrowser();
std::size_t outboundLimit();

}  // namespace media::win::chrome_inspect
