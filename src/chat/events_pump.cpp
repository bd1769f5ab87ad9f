#include "chat/events_pump.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "agent/agent_request.h"
#include "agent/agent_state.h"
#include "agent/event_feed.h"
#include "agent/event_splitter.h"
#include "channel/host_log.h"
#include "channel/panel_events.h"
#include "common/detached.h"
#include "text/leaked.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct PumpState {
  // Held while an event is written, and when the next pump begins: an event that was let through
  // and then held up would otherwise come after those of the next pump. Taken before `mutex`.
  std::mutex speaking;
  std::mutex mutex;  // guards what follows; not held while an event is sent or a request made
  std::uint64_t chatPumpGeneration = 0;
  std::uint16_t chatPumpPort = 0;  // of the agent whose pump runs; 0 when none does
  std::string sender;
  std::uint64_t after = 0;
};

PumpState& pumpState() {
  static PumpState& state = leaked<PumpState>();
  return state;
}

// What one pump was started with. It is current for as long as nobody has started or stopped one
// since.
struct Pump {
  std::uint64_t generation = 0;
  std::uint16_t port = 0;
  std::string sender;
  std::uint64_t after = 0;
};

bool isCurrent(std::uint64_t generation) {
  const std::lock_guard lock(pumpState().mutex);
  return pumpState().chatPumpGeneration == generation;
}

// Remembers how far the panel has come, so that the next pump repeats nothing. False when the pump
// is no longer current: its events are not for the panel any more.
bool noteEvent(std::uint64_t generation, const json& event) {
  PumpState& state = pumpState();
  const auto id = event.find("id");
  const std::lock_guard lock(state.mutex);
  if (state.chatPumpGeneration != generation) return false;
  if (id != event.end() && id->is_number_unsigned()) state.after = id->get<std::uint64_t>();
  return true;
}

void forwardBlock(std::uint64_t generation, std::string_view block) {
  json event;
  if (!readFeedEvent(block, event)) return;
  const std::lock_guard lock(pumpState().speaking);
  if (!noteEvent(generation, event)) return;
  json forwarded = {{"method", event["method"]}, {"args", std::move(event["args"])}};
  if (event.contains("id")) forwarded["id"] = std::move(event["id"]);
  const auto sender = event.find("sender");
  if (sender != event.end() && sender->is_string()) forwarded["sender"] = std::move(*sender);
  sendChatEventBatch(json::array({std::move(forwarded)}));
}

void feedPump(const Pump& pump, EventSplitter& splitter, std::string_view chunk) {
  if (!isCurrent(pump.generation)) return;
  try {
    splitter.feed(chunk, [&pump](std::string_view block) { forwardBlock(pump.generation, block); });
  } catch (const std::length_error&) {
    splitter = EventSplitter();  // a block without end: what it would have been is lost
  }
}

void endPump(const Pump& pump) {
  PumpState& state = pumpState();
  const std::lock_guard lock(state.mutex);
  if (state.chatPumpGeneration == pump.generation) state.chatPumpPort = 0;
}

std::wstring eventsPath(const Pump& pump) {
  std::wstring path = L"/v1/chat/events?after=" + std::to_wstring(pump.after);
  if (!pump.sender.empty()) path += L"&sender=" + toWide(pump.sender);
  return path;
}

void pump_chat_events(const Pump& pump) {
  EventSplitter splitter;
  // How it ended is of no interest to the panel; the next agent that answers starts a new one.
  (void)agentFeed(
      pump.port, eventsPath(pump), CancelSlot::events,
      [&pump] { return isCurrent(pump.generation); },
      [&](std::string_view chunk) { feedPump(pump, splitter, chunk); });
  forwardBlock(pump.generation, splitter.pending());
}

// Ends the duty of a pump however its thread ends.
class PumpRun {
 public:
  explicit PumpRun(Pump pump) : pump_(std::move(pump)) {}
  ~PumpRun() { endPump(pump_); }
  PumpRun(const PumpRun&) = delete;
  PumpRun& operator=(const PumpRun&) = delete;
  void run() const { pump_chat_events(pump_); }

 private:
  Pump pump_;
};

void launch(Pump pump) {
  abortRequests(CancelSlot::events);  // of the pump before, which is no longer current
  const auto run = std::make_shared<const PumpRun>(std::move(pump));
  // Without a thread the pump has ended; the next agent that answers tries again.
  (void)runDetached("chat events", [run] { run->run(); });
}

bool runsOn(PumpState& state, std::uint16_t port) {
  const std::lock_guard lock(state.mutex);
  return state.chatPumpPort == port;
}

// Begins the next pump, for the agent on `port`. Lock held.
Pump nextPump(PumpState& state, std::uint16_t port) {
  state.chatPumpPort = port;
  return {++state.chatPumpGeneration, port, state.sender, state.after};
}

}  // namespace

void startChatEvents(std::uint16_t port, bool fresh) {
  PumpState& state = pumpState();
  if (!fresh && runsOn(state, port)) return;  // mostly; without waiting for an event's writing
  Pump pump;
  {
    const std::scoped_lock lock(state.speaking, state.mutex);
    if (!fresh && state.chatPumpPort == port) return;
    pump = nextPump(state, port);
  }
  launch(std::move(pump));
}

void pointChatEvents(const std::string& sender, std::uint64_t after) {
  PumpState& state = pumpState();
  Pump pump;
  {
    const std::scoped_lock lock(state.speaking, state.mutex);
    state.sender = sender;
    state.after = after;
    if (state.chatPumpPort == 0) return;
    pump = nextPump(state, state.chatPumpPort);
  }
  launch(std::move(pump));
}

std::string chatEventsSender() {
  const std::lock_guard lock(pumpState().mutex);
  return pumpState().sender;
}

void stopChatEvents() {
  {
    PumpState& state = pumpState();
    const std::scoped_lock lock(state.speaking, state.mutex);
    ++state.chatPumpGeneration;
    state.chatPumpPort = 0;
  }
  abortRequests(CancelSlot::events);
}

json takePendingChatEvents() {
  json events = json::array();
  for (json& line : takeDebugLogEvents(maxLogLinesPerBatch)) {
    events.push_back({{"method", "appendDebugLog"}, {"args", std::move(line)}});
  }
  return events;
}

}  // namespace media::win::chrome_inspect
