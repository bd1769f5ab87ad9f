#include "channel/event_batch.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "channel/framing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The frame is put together as text, with the keys in the library's order: each event is serialised
// once and its size is known when it is added.
constexpr std::string_view head = R"({"events":[)";
constexpr std::string_view tail = R"(],"kind":"hostChatEvents","source":"morva-chat"})";

std::string eventText(std::string_view method, const json& args) {
  return R"({"args":)" + dumpJson(args) + R"(,"method":)" + dumpJson(method) + "}";
}

// What one frame has for its events.
std::size_t roomForEvents() { return outboundLimit() - head.size() - tail.size(); }

std::string leftOutText(std::string_view method, std::size_t size) {
  const std::string line = "event " + std::string(method.substr(0, 64)) +
                           " left out: too large for the browser (" + std::to_string(size) +
                           " bytes)";
  return eventText("appendText", json::array({{{"role", "error"}, {"text", line}}}));
}

}  // namespace

void EventBatch::add(std::string_view method, const json& args) {
  add(method, eventText(method, args));
}

bool EventBatch::send() {
  if (!frame_.empty()) {
    frame_ += tail;
    written_ = writeMessageText(std::exchange(frame_, {})) && written_;
  }
  return std::exchange(written_, true);
}

void EventBatch::add(std::string_view method, std::string text) {
  if (text.size() > roomForEvents()) text = leftOutText(method, text.size());
  if (!frame_.empty() && frame_.size() - head.size() + 1 + text.size() > roomForEvents()) {
    const bool sent = send();
    written_ = sent && written_;
  }
  frame_ += frame_.empty() ? head : ",";
  frame_ += text;
}

std::size_t maxArgsBytes(std::string_view method) {
  return roomForEvents() + 2 - eventText(method, json::array()).size();
}

std::string& EventFrames::begin() {
  frames_.resize(ended_);
  frames_.append(frameHeadBytes, '\0').append(head);
  return frames_ += R"({"args":)";
}

void EventFrames::end(std::string_view method) {
  frames_.append(R"(,"method":")").append(method).append("\"}");
  const std::size_t body = ended_ + frameHeadBytes;
  const std::size_t event = body + head.size();
  if (const std::size_t size = frames_.size() - event; size > roomForEvents()) {
    frames_.resize(event);
    frames_ += leftOutText(method, size);
  }
  frames_ += tail;
  writeFrameHead(frames_.data() + ended_, frames_.size() - body);
  if (ended_ == 0) firstSize_ = frames_.size();
  ended_ = frames_.size();
}

bool EventFrames::send(EventBatch ahead) {
  std::string_view frames = std::string_view(frames_).substr(0, ended_);
  bool written = true;
  if (!ahead.empty()) {
    const std::size_t event = frameHeadBytes + head.size();
    ahead.add("", std::string(frames.substr(event, firstSize_ - event - tail.size())));
    written = ahead.send();
    frames.remove_prefix(firstSize_);
  }
  written = writeFrames(frames) && written;
  clear();
  return written;
}

}  // namespace media::win::chrome_inspect
