#include "chat/speech.h"

#include <atomic>
#include <deque>
#include <nlohmann/json.hpp>

#include "agent/agent_answer.h"
#include "agent/agent_end.h"
#include "agent/agent_request.h"
#include "agent/current_agent.h"
#include "agent/request_slots.h"
#include "agent/running_turns.h"
#include "agent_process/supervision.h"
#include "channel/panel_events.h"
#include "common/detached.h"
#include "platform/locks.h"
#include "text/json_parse.h"
#include "text/leaked.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* speakFailed = "speak failed";

void showError(const std::string& error, const char* fallback) {
  const std::string text = error.empty() ? fallback : foreignText(error);
  emitPanelMessage("appendText", json::array({{{"role", "error"}, {"text", text}}}));
}

std::atomic<std::uint64_t> readingStops = 0;

void stopReadings() {
  ++readingStops;
  abortRequests(CancelSlot::speech);
}

// Whether a reading that began after so many stops is to end, without a word about its failing.
bool isStopped(std::uint64_t stopsBefore) {
  return readingStops != stopsBefore || agentsAreEnding();
}

void speak(const std::string& text, std::uint64_t stopsBefore) {
  const AgentInUse inUse;  // a long reading is not idleness
  std::string error;
  const auto port = ensureAgent(error);
  if (isStopped(stopsBefore)) return;
  if (!port) return showError(error, "speak did not start");
  const auto stopped = [stopsBefore] { return isStopped(stopsBefore); };
  const AgentAnswer answer =
      readAnswer(agentSpeech(*port, dumpJson({{"text", text}}), stopped), speakFailed);
  if (!answer.ok && !stopped()) showError(answer.error, speakFailed);
}

// Ends every reading with the one event that the panel waits for.
class SpeechEnd {
 public:
  SpeechEnd() = default;
  ~SpeechEnd() {
    try {
      emitPanelMessage("ttsDone", json::array());
    } catch (const std::exception&) {  // no memory for the last word
    }
  }
  SpeechEnd(const SpeechEnd&) = delete;
  SpeechEnd& operator=(const SpeechEnd&) = delete;
};

struct Control {
  const wchar_t* path;
  const char* event;
};

Control detailsOf(SpeechControl control) {
  switch (control) {
    case SpeechControl::pause:
      return {L"/v1/speak/pause", "ttsPaused"};
    case SpeechControl::resume:
      return {L"/v1/speak/resume", "ttsResumed"};
    case SpeechControl::stop:
      break;
  }
  return {L"/v1/speak/stop", "ttsDone"};
}

struct ControlState {
  Mutex mutex;  // not held during a request
  std::deque<SpeechControl> waiting MORVA_GUARDED_BY(mutex);
  bool working MORVA_GUARDED_BY(mutex) = false;  // a thread is passing them on
};

ControlState& controlState() {
  static ControlState& state = leaked<ControlState>();
  return state;
}

void passOn(SpeechControl control) {
  const Control details = detailsOf(control);
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    (void)agentRequest(port, L"POST", details.path, "{}");
  }
  emitPanelMessage(details.event, json::array());
}

bool takeControl(SpeechControl& control) {
  ControlState& state = controlState();
  const Lock lock(state.mutex);
  state.working = !state.waiting.empty();
  if (!state.working) return false;
  control = state.waiting.front();
  state.waiting.pop_front();
  return true;
}

// One thread at a time passes controls on, so that they keep their order.
void passOnAll() {
  for (SpeechControl control{}; takeControl(control);) {
    try {
      passOn(control);
    } catch (const std::exception&) {  // no memory for this one; the next may do
    }
  }
}

}  // namespace

bool startSpeech(const std::string& text) {
  if (text.empty()) return true;
  emitPanelMessage("ttsStarted", json::array());
  const auto end = std::make_shared<const SpeechEnd>();  // also when no thread takes it over
  return runDetached("speech", [text, end, stops = readingStops.load()] { speak(text, stops); });
}

bool controlSpeech(SpeechControl control) {
  if (control == SpeechControl::stop) stopReadings();
  ControlState& state = controlState();
  const Lock lock(state.mutex);
  state.waiting.push_back(control);
  if (!state.working) state.working = runDetached("speech controls", passOnAll);
  if (!state.working) state.waiting.pop_back();
  return state.working;
}

}  // namespace media::win::chrome_inspect
