#include "support/blocked_output.h"

#include <gtest/gtest.h>

#include <string>

#include "channel/framing.h"

namespace media::win::chrome_inspect {

BlockedOutput::BlockedOutput() : output_(CapturedOutput::Reader::stalls) {
  constexpr std::size_t moreThanAPipeHolds = 1'000'000;
  stuck_ = std::make_unique<TestThread>(
      [] { EXPECT_TRUE(writeMessageText(std::string(moreThanAPipeHolds, 'x'))); });
  output_.waitForFirstByte();  // from here on the writer holds standard output
}

BlockedOutput::~BlockedOutput() { resume(); }

void BlockedOutput::resume() {
  if (!stuck_) return;
  output_.resume();
  stuck_.reset();
}

CapturedOutput::Frames BlockedOutput::waitUntil(
    const std::function<bool(const CapturedOutput::Frames&)>& enough) {
  return output_.waitUntil(enough);
}

CapturedOutput::Frames BlockedOutput::finish() {
  resume();
  CapturedOutput::Frames frames = output_.finish();
  EXPECT_FALSE(frames.empty());
  if (!frames.empty()) frames.erase(frames.begin());
  return frames;
}

}  // namespace media::win::chrome_inspect
