#include "support/captured_output.h"

#include "channel/framing.h"
#include "support/json_replies.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Frames = CapturedOutput::Frames;

// Takes the whole frames from the front of `bytes`.
Frames cutFrames(std::string& bytes) {
  Frames frames;
  std::size_t begin = 0;
  std::uint32_t length = 0;
  while (bytes.size() - begin >= sizeof length) {
    std::memcpy(&length, bytes.data() + begin, sizeof length);
    if (bytes.size() - begin - sizeof length < length) break;
    frames.push_back(bytes.substr(begin + sizeof length, length));
    begin += sizeof length + length;
  }
  bytes.erase(0, begin);
  return frames;
}

}  // namespace

CapturedOutput::CapturedOutput(Reader reader) : old_(replaceStandardOutput(pipe_.writeEnd.get())) {
  if (reader == Reader::reads) resume();
}

CapturedOutput::CapturedOutput(std::function<void(const json&)> handler)
    : handler_(std::move(handler)), old_(replaceStandardOutput(pipe_.writeEnd.get())) {
  resume();
}

void CapturedOutput::resume() {
  reader_ = std::make_unique<TestThread>([this] { readAll(); });
}

void CapturedOutput::waitForFirstByte() {
  char byte = 0;
  std::size_t got = 0;
  if (readSome(pipe_.readEnd.get(), &byte, 1, got) == ReadResult::data) rest_ += byte;
}

Frames CapturedOutput::waitUntil(const std::function<bool(const Frames&)>& enough) {
  std::unique_lock lock(mutex_);
  const bool came =
      arrived_.wait_for(lock, std::chrono::seconds(30), [&] { return enough(frames_); });
  if (!came) ADD_FAILURE() << "not enough after " << frames_.size() << " frames";
  return frames_;
}

Frames CapturedOutput::waitFor(std::size_t count) {
  return waitUntil([count](const Frames& frames) { return frames.size() >= count; });
}

Frames CapturedOutput::finish() {
  if (std::exchange(captures_, false)) {
    restoreStandardOutput(old_);
    pipe_.writeEnd.reset();
    if (!reader_ && pipe_.readEnd) resume();
    reader_.reset();
    EXPECT_EQ(rest_, "") << "standard output holds what is no frame";
  }
  return frames_;
}

void CapturedOutput::readAll() {
  std::string buffer(65536, '\0');
  std::size_t got = 0;
  while (readSome(pipe_.readEnd.get(), buffer.data(), buffer.size(), got) == ReadResult::data) {
    rest_.append(buffer, 0, got);
    for (const std::string& frame : cutFrames(rest_)) {
      if (handler_) handler_(json::parse(frame));
      const std::lock_guard lock(mutex_);
      frames_.push_back(frame);
      arrived_.notify_all();
    }
  }
}

BlockedOutput::BlockedOutput() : CapturedOutput(Reader::stalls) {
  constexpr std::size_t moreThanAPipeHolds = 1'000'000;
  stuck_ = std::make_unique<TestThread>(
      [] { EXPECT_TRUE(writeMessageText(std::string(moreThanAPipeHolds, 'x'))); });
  waitForFirstByte();  // from here on the writer holds standard output
}

void BlockedOutput::resume() {
  if (!stuck_) return;
  CapturedOutput::resume();
  stuck_.reset();
}

Frames BlockedOutput::finish() {
  resume();
  Frames frames = CapturedOutput::finish();
  EXPECT_FALSE(frames.empty());
  if (!frames.empty()) frames.erase(frames.begin());
  return frames;
}

void answer(const json& message, json reply) {
  const auto id = message.at("requestId").get<std::string>();
  reply["requestId"] = id;
  storeReply(id, reply);
}

Frames eventsIn(const Frames& frames) {
  Frames events;
  for (const std::string& frame : frames) {
    const json message = json::parse(frame);
    if (message.value("kind", "") != "hostChatEvents") {
      events.push_back(frame);
      continue;
    }
    for (const json& event : message.at("events")) events.push_back(event.dump());
  }
  return events;
}

}  // namespace media::win::chrome_inspect
