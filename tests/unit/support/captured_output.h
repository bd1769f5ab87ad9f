#pragma once

#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// Stands where the browser is: while it lives, the process's standard output is a pipe, and what
// comes out of it is taken apart into frames. Bytes that are no frame fail the test, so a failed
// check meanwhile is best reported after `finish`.
class CapturedOutput {
 public:
  enum class Reader { reads, stalls };
  explicit CapturedOutput(Reader reader = Reader::reads);
  // Stands where the extension is: what the host sends is handed, parsed, to a handler, on a thread
  // of its own. The handler answers by storing replies, at once or later.
  explicit CapturedOutput(std::function<void(const json& message)> handler);
  ~CapturedOutput() { (void)finish(); }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Lets a reader that was made to stall read.
  void resume();
  // Closes the reading side of a stalled one, as a browser that has gone.
  void closeReader() { pipe_.readEnd.reset(); }
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

  const std::function<void(const json&)> handler_;
  TestPipe pipe_;
  const StreamId old_;
  bool captures_ = true;
  std::string rest_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  Frames frames_;
  std::unique_ptr<TestThread> reader_;
};

// A browser that has stopped reading: standard output is full and a writer is stuck in it, so that
// every further write waits.
class BlockedOutput : public CapturedOutput {
 public:
  BlockedOutput();
  ~BlockedOutput() { resume(); }

  // The browser reads again.
  void resume();
  // All frames but the one that was stuck.
  Frames finish();

 private:
  std::unique_ptr<TestThread> stuck_;
};

// Answers `message`, as the reader of standard input would.
void answer(const json& message, json reply);

// The events in "hostChatEvents" frames, one after the other, as compact text. A frame of another
// kind stands among them as it is.
CapturedOutput::Frames eventsIn(const CapturedOutput::Frames& frames);

}  // namespace media::win::chrome_inspect
