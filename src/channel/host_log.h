#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string_view>
#include <vector>

// The host's only log. Lines wait in memory until they are sent to the panel's debug log as
// "appendDebugLog" events: with the next event of any kind, or on their own once there are 20.
namespace media::win::chrome_inspect {

inline constexpr std::size_t maxLogTextBytes = 1024;   // a longer line is cut to that
inline constexpr std::size_t maxQueuedLogLines = 800;  // then the oldest are dropped
inline constexpr std::size_t droppedLogLines = 200;    // so many at a time
inline constexpr std::size_t logLinesThatSend = 20;
inline constexpr std::size_t maxLogLinesPerBatch = 40;

// Queues one line; `level` is "trace" (also when empty), "warn" or "error". With `flushNow`, or
// once 20 lines wait, this thread sends a batch, unless another is being sent: then the lines stay
// for the next. So it may block on standard output, and must not be called with a lock held, but
// for those that order whole streams of events (docs/architecture.md, "Locks"). `text` need not be
// UTF-8.
void appendDebugLog(std::string_view text, std::string_view level = "trace", bool flushNow = false);

// For threads that must never wait for the browser, such as the one that empties a child's output:
// queues the line and leaves sending to a thread of its own. A line for which there is no memory is
// lost.
void queueDebugLog(std::string_view text, std::string_view level = "trace") noexcept;

// Takes up to `maxCount` lines out of the queue, oldest first, as event arguments.
std::vector<nlohmann::json> takeDebugLogEvents(std::size_t maxCount);

// Writes events with log lines ahead of them: calls `write`, once, with the lines that wait, at
// most a batch, oldest first, for it to send. Until it returns no other thread sends lines, so they
// keep their order; while another thread sends some, `write` gets none. Then sends a batch for each
// `flushNow` that came meanwhile. So it may block on standard output. What `write` throws is passed
// on. Threads: any.
using WriteWithLines = std::function<void(const std::vector<nlohmann::json>& lines)>;
void sendBehindLogLines(const WriteWithLines& write);

}  // namespace media::win::chrome_inspect
