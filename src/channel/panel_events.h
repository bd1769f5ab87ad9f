#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "channel/event_batch.h"

namespace media::win::chrome_inspect {

// Sends one event to the panel, ahead of it up to 40 waiting log lines, as one batch. `args` must
// be an array and `method` not empty, or nothing is sent; then batches of lines that were to be
// flushed meanwhile. May block on standard output: no lock may be held, but for those that keep
// the events of a stream together (docs/architecture.md, "Locks"). Threads: any.
void emitPanelMessage(std::string_view method, const nlohmann::json& args);

// The same for events that are composed already, at least one; the log lines travel with the first.
void sendEventFrames(EventFrames& frames);

// The same for one whole event as text.
void sendChatEventBatch(std::string_view method, std::string event);

}  // namespace media::win::chrome_inspect
