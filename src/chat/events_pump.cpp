#include "chat/events_pump.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/agent_request.h"
#include "agent/feed_pump.h"
#include "agent/request_slots.h"
#include "channel/panel_events.h"
#include "platform/locks.h"
#include "text/json_text.h"
#include "text/json_view.h"
#include "text/leaked.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

void forwardChatEvent(JsonView event);
void chatEventsEnded(const AgentResponse& response);

struct ChatEvents {
  FeedPump pump{{"chat events", CancelSlot::events, forwardChatEvent, chatEventsEnded}};
  Mutex mutex;  // taken after the pump's, and not held while an event is sent
  AgentId agent MORVA_GUARDED_BY(mutex);  // whose stream is read, if one is
  std::string sender MORVA_GUARDED_BY(mutex);
  std::uint64_t after MORVA_GUARDED_BY(mutex) = 0;
};

ChatEvents& chatEvents() {
  static ChatEvents& events = leaked<ChatEvents>();
  return events;
}

// Remembers how far the panel has come, so that the next stream repeats nothing.
void noteId(const json& id) {
  if (!id.is_number_unsigned()) return;
  const Lock lock(chatEvents().mutex);
  chatEvents().after = id.get<std::uint64_t>();
}

void forwardChatEvent(JsonView event) {
  const JsonView id = event["id"];
  const JsonView sender = event["sender"];
  const JsonView method = event["method"];
  noteId(id.toValue());
  std::string text;
  JsonObjectText forwarded(text);
  forwarded.view("args", event["args"]);
  if (id) forwarded.view("id", id);
  forwarded.view("method", method);
  if (sender.isString()) forwarded.view("sender", sender);
  forwarded.end();
  sendChatEventBatch(method.text(), std::move(text));
}

// How it ended is of no interest to the panel; the next agent that answers starts a new one.
void chatEventsEnded(const AgentResponse&) {
  const Lock lock(chatEvents().mutex);
  chatEvents().agent = {};
}

// Throws when there is no memory for it; then no agent is read from, and the next start tries.
std::wstring eventsPath(ChatEvents& events) MORVA_REQUIRES(events.mutex) {
  try {
    std::wstring path = L"/v1/chat/events?after=" + std::to_wstring(events.after);
    if (!events.sender.empty()) path += L"&sender=" + toWide(events.sender);
    return path;
  } catch (const std::exception&) {
    events.agent = {};
    throw;
  }
}

void pump_chat_events(std::uint16_t port, std::wstring path, std::uint64_t stream) {
  chatEvents().pump.read(stream, port, std::move(path));
}

bool isReadFrom(const AgentId& agent) {
  const Lock lock(chatEvents().mutex);
  return chatEvents().agent == agent;
}

// Ends the stream that is read and reads the next one, from the agent that `choose` leaves in the
// state, if there is one. `choose` is called with the lock held; when it returns false, nothing
// happens.
void restart(const std::function<bool(ChatEvents&)>& choose) {
  ChatEvents& events = chatEvents();
  std::uint16_t port = 0;
  std::wstring path;
  const std::uint64_t stream = events.pump.begin([&] {
    const Lock lock(events.mutex);
    if (!choose(events)) return false;
    port = events.agent.port;
    if (events.agent) path = eventsPath(events);
    return true;
  });
  if (stream != 0 && port != 0) pump_chat_events(port, std::move(path), stream);
}

}  // namespace

void startChatEvents(const AgentId& agent) {
  if (isReadFrom(agent)) return;  // mostly; without waiting for an event's writing
  restart([&agent](ChatEvents& events)
              MORVA_REQUIRES(events.mutex) { return std::exchange(events.agent, agent) != agent; });
}

void pointChatEvents(const std::string& sender, std::uint64_t after) {
  const AgentId current = currentAgent();
  restart([&](ChatEvents& events) MORVA_REQUIRES(events.mutex) {
    events.sender = sender;
    events.after = after;
    if (!events.agent) events.agent = current;
    return static_cast<bool>(events.agent);
  });
}

std::string chatEventsSender() {
  const Lock lock(chatEvents().mutex);
  return chatEvents().sender;
}

void stopChatEvents() {
  restart([](ChatEvents& events) MORVA_REQUIRES(events.mutex) {
    events.agent = {};
    return true;
  });
}

void stopChatEventsOf(const AgentId& agent) {
  restart([&agent](ChatEvents& events) MORVA_REQUIRES(events.mutex) {
    if (events.agent != agent) return false;
    events.agent = {};
    return true;
  });
}

}  // namespace media::win::chrome_inspect
