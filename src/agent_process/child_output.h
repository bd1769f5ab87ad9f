#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

// Cuts a child's output into lines: each ends with a line feed, one carriage return before it is
// dropped. Only the beginning of a line is kept, as much as the log would show, so that a child
// that never ends its line costs nothing. Linear in the bytes fed.
class LineSplitter {
 public:
  // Calls `onLine` for every line that `piece` completes, without its line end.
  void feed(std::string_view piece, const std::function<void(std::string_view)>& onLine);

 private:
  void keep(std::string_view part);

  std::string line_;
};

// Reads the child's output to its end and writes each line to the host log at level "trace"; a last
// line without line feed is not logged. Never waits for the browser: a child whose output is not
// read would stand still. Takes a thread of its own; false when there is none to be had.
bool startOutputReader(OwnedStream output);

}  // namespace media::win::chrome_inspect
