#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/byte_stream.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {

// Stands where the browser is: while it lives, the process's standard output is a pipe, and what
// comes out of it is taken apart into frames. Bytes that are no frame fail the test, so a failed
// check meanwhile is best reported after `finish`.
class CapturedOutput {
 public:
  enum class Reader { reads, stalls };
  explicit CapturedOutput(Reader reader = Reader::reads);
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Lets a reader that was made to stall read.
  void resume();
  // Closes the reading side of a stalled one, as a browser that has gone.
  void closeReader();
  // Takes one byte of what was written to a stalled one, waiting for it.
  void waitForFirstByte();
  // Waits until the frames so far are enough, at most 30 s, and returns their bodies.
  using Frames = std::vector<std::string>;
  Frames waitUntil(const std::function<bool(const Frames&)>& enough);
  // Waits until `count` frames have come.
  Frames waitFor(std::size_t count);
  // Puts the old standard output back and returns the bodies of all frames.
  Frames finish();

 private:
  void readAll();

  OwnedStream readEnd_;
  OwnedStream writeEnd_;
  StreamId old_;
  bool captures_ = true;
  std::unique_ptr<TestThread> reader_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  std::vector<std::string> frames_;
  std::string rest_;
};

// The events in "hostChatEvents" frames, one after the other, as compact text. A frame of another
// kind stands among them as it is.
std::vector<std::string> eventsIn(const std::vector<std::string>& frames);

}  // namespace media::win::chrome_inspect
