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
  // An event as a whole object; other members than "method" and "args" go along.
  void add(const nlohmann::json& event);
  // Sends what was added and not sent yet; nothing when there is nothing. False when standard
  // output does not take it any more.
  bool send();

 private:
  void append(std::string_view method, std::string text);

  std::string frame_;
  bool written_ = true;
};

// The most bytes that the args of an event may take in JSON, so that it is sent and not left out.
std::size_t maxArgsBytes(std::string_view method);

}  // namespace media::win::chrome_inspect
