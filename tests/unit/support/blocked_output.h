#pragma once

#include <functional>
#include <memory>

#include "support/captured_output.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {

// A browser that has stopped reading: standard output is full and a writer is stuck in it, so that
// every further write waits.
class BlockedOutput {
 public:
  BlockedOutput();
  ~BlockedOutput();
  BlockedOutput(const BlockedOutput&) = delete;
  BlockedOutput& operator=(const BlockedOutput&) = delete;

  // The browser reads again.
  void resume();
  // As in CapturedOutput; the first frame is the one that was stuck.
  CapturedOutput::Frames waitUntil(
      const std::function<bool(const CapturedOutput::Frames&)>& enough);
  // All frames but the one that was stuck.
  CapturedOutput::Frames finish();

 private:
  CapturedOutput output_;
  std::unique_ptr<TestThread> stuck_;
};

}  // namespace media::win::chrome_inspect
