#include "channel/panel_events.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "channel/event_batch.h"
#include "channel/host_log.h"

namespace media::win::chrome_inspect {
namespace {

EventBatch batchOf(const std::vector<nlohmann::json>& lines) {
  EventBatch batch;
  for (const nlohmann::json& line : lines) batch.add("appendDebugLog", line);
  return batch;
}

}  // namespace

void emitPanelMessage(std::string_view method, const nlohmann::json& args) {
  if (method.empty() || !args.is_array()) return;
  sendBehindLogLines([&](const std::vector<nlohmann::json>& lines) {
    EventBatch batch = batchOf(lines);
    batch.add(method, args);
    (void)batch.send();  // the browser is gone; the reader will notice
  });
}

void sendEventFrames(EventFrames& frames) {
  sendBehindLogLines([&](const std::vector<nlohmann::json>& lines) {
    (void)frames.send(batchOf(lines));  // the browser is gone; the reader will notice
  });
}

void sendChatEventBatch(std::string_view method, std::string event) {
  sendBehindLogLines([&](const std::vector<nlohmann::json>& lines) {
    EventBatch batch = batchOf(lines);
    batch.add(method, std::move(event));
    (void)batch.send();  // the browser is gone; the reader will notice
  });
}

}  // namespace media::win::chrome_inspect
