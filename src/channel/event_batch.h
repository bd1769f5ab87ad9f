#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// Collects panel events, {"method": name, "args": [...]}, and sends them in "hostChatEvents"
// frames. Normally one frame; what would not fit into a frame that Chrome takes goes into the next
// one, and a single event that fits into none is replaced by an "appendText" line that names it and
// its size. Events go out in the order of `add`. Belongs to one thread. `add` and `send` may block
// on standard output: no lock may be held, but for those that keep the events of a stream
// together (docs/architecture.md, "Locks").
class EventBatch {
 public:
  void add(std::string_view method, const nlohmann::json& args);
  // An event as text; other members than "method" and "args" go along.
  void add(std::string_view method, std::string event);
  // Sends what was added and not sent yet; nothing when there is nothing. False when standard
  // output does not take it any more.
  bool send();
  bool empty() const { return frame_.empty(); }

 private:
  std::string frame_;
  bool written_ = true;
};

// The most bytes that the args of an event may take in JSON, so that it is sent and not left out.
std::size_t maxArgsBytes(std::string_view method);

// Events that come in great numbers: each is composed as the text of a frame of its own, and all
// are sent by one write. The memory is kept for the next ones. Belongs to one thread.
class EventFrames {
 public:
  // Begins an event: its "args" are to be appended to what is returned, as JSON. An event that was
  // not ended is forgotten.
  std::string& begin();
  // Ends the event. One that fits into no frame that Chrome takes is replaced as by EventBatch.
  void end(std::string_view method);
  bool empty() const { return ended_ == 0; }
  void clear() { ended_ = 0; }
  // Sends what was added, at least one event; with the first, ahead of it, what `ahead` holds.
  // False as for EventBatch.
  bool send(EventBatch ahead);

 private:
  std::string frames_;
  std::size_t ended_ = 0;      // so many bytes are whole frames
  std::size_t firstSize_ = 0;  // of the first frame
};

}  // namespace media::win::chrome_inspect
