#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "agent/event_splitter.h"
#include "channel/event_batch.h"
#include "chat/turn_events.h"

// Translates the agent's answer to a chat turn, a stream of server-sent events, into panel events.
namespace media::win::chrome_inspect {

// The longest answer text that is collected; a stream that goes on past it is cut off.
inline constexpr std::size_t maxAssistantText = 64 * 1024 * 1024;

// The running state of one turn's stream. Belongs to the turn's thread.
struct TurnStream {
  TurnStream(std::shared_ptr<TurnEvents> turnEvents, std::string sessionId)
      : events(std::move(turnEvents)), chatSessionId(std::move(sessionId)) {}

  std::shared_ptr<TurnEvents> events;
  std::string chatSessionId;
  EventSplitter splitter;
  EventFrames frames;         // what was translated and not sent yet
  std::string assistantText;  // all content deltas so far
  std::uint32_t seq = 0;      // "appendAssistantDelta" events sent so far
  bool done = false;          // the answer is complete, or failed
  nlohmann::json usage;       // the last token usage seen; null before the first
};

// Takes received bytes and translates each event block that they complete. The events are sent
// before it returns, those of the same kind at once, so it may block on standard output. Throws
// nlohmann::json::exception or std::runtime_error for data that cannot be understood and
// std::length_error for data without end; the turn then ends with that text.
void onStreamChunk(TurnStream& stream, std::string_view chunk);

// Translates what came behind the last block, unless the answer is complete. Throws as above.
void finishStream(TurnStream& stream);

// Translates one event block.
void translateEventBlock(TurnStream& stream, std::string_view block);

}  // namespace media::win::chrome_inspect
