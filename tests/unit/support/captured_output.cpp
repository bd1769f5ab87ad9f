#include "support/captured_output.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "support/standard_output.h"

namespace media::win::chrome_inspect {
namespace {

// Moves the whole frames at the front of `bytes` to `frames`.
void cutFrames(std::string& bytes, std::vector<std::string>& frames) {
  std::size_t begin = 0;
  std::uint32_t length = 0;
  while (bytes.size() - begin >= sizeof length) {
    std::memcpy(&length, bytes.data() + begin, sizeof length);
    if (bytes.size() - begin - sizeof length < length) break;
    frames.push_back(bytes.substr(begin + sizeof length, length));
    begin += sizeof length + length;
  }
  bytes.erase(0, begin);
}

}  // namespace

CapturedOutput::CapturedOutput(Reader reader) {
  if (!makePipe(readEnd_, writeEnd_)) throw std::runtime_error("no pipe for the test");
  old_ = replaceStandardOutput(writeEnd_.get());
  if (reader == Reader::reads) resume();
}

CapturedOutput::~CapturedOutput() { (void)finish(); }

void CapturedOutput::resume() {
  reader_ = std::make_unique<TestThread>([this] { readAll(); });
}

void CapturedOutput::closeReader() { readEnd_.reset(); }

void CapturedOutput::waitForFirstByte() {
  char byte = 0;
  std::size_t got = 0;
  if (readSome(readEnd_.get(), &byte, 1, got) == ReadResult::data) rest_ += byte;
}

CapturedOutput::Frames CapturedOutput::waitUntil(const std::function<bool(const Frames&)>& enough) {
  std::unique_lock lock(mutex_);
  const bool came =
      arrived_.wait_for(lock, std::chrono::seconds(30), [&] { return enough(frames_); });
  if (!came) ADD_FAILURE() << "not enough after " << frames_.size() << " frames";
  return frames_;
}

CapturedOutput::Frames CapturedOutput::waitFor(std::size_t count) {
  return waitUntil([count](const Frames& frames) { return frames.size() >= count; });
}

CapturedOutput::Frames CapturedOutput::finish() {
  if (std::exchange(captures_, false)) {
    restoreStandardOutput(old_);
    writeEnd_.reset();
    if (!reader_ && readEnd_) resume();
    reader_.reset();
    EXPECT_EQ(rest_, "") << "standard output holds what is no frame";
  }
  return frames_;
}

void CapturedOutput::readAll() {
  std::array<char, 65536> buffer{};
  std::size_t got = 0;
  while (readSome(readEnd_.get(), buffer.data(), buffer.size(), got) == ReadResult::data) {
    const std::lock_guard lock(mutex_);
    rest_.append(buffer.data(), got);
    cutFrames(rest_, frames_);
    arrived_.notify_all();
  }
}

std::vector<std::string> eventsIn(const std::vector<std::string>& frames) {
  std::vector<std::string> events;
  for (const std::string& frame : frames) {
    const nlohmann::json message = nlohmann::json::parse(frame);
    if (message.value("kind", "") != "hostChatEvents") {
      events.push_back(frame);
      continue;
    }
    for (const nlohmann::json& event : message.at("events")) events.push_back(event.dump());
  }
  return events;
}

}  // namespace media::win::chrome_inspect
