#include "channel/host_log.h"

#include <algorithm>
#include <deque>
#include <nlohmann/json.hpp>
#include <utility>

#include "channel/event_batch.h"
#include "common/detached.h"
#include "platform/locks.h"
#include "text/leaked.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct LogLine {
  std::string level;
  std::string text;
};

struct LogState {
  Mutex outputLock;  // not held while a frame is written
  Condition enoughLines;
  std::deque<LogLine> debugLogQueue MORVA_GUARDED_BY(outputLock);
  // A thread is writing a batch; others leave their lines queued.
  bool sending MORVA_GUARDED_BY(outputLock) = false;
  bool flushWanted MORVA_GUARDED_BY(outputLock) = false;    // asked for while a batch was written
  bool senderStarted MORVA_GUARDED_BY(outputLock) = false;  // the thread behind queueDebugLog
};

LogState& logState() {
  static LogState& state = leaked<LogState>();
  return state;
}

void pushLine(LogState& log, std::string_view text, std::string_view level)
    MORVA_REQUIRES(log.outputLock) {
  std::deque<LogLine>& queue = log.debugLogQueue;
  if (queue.size() >= maxQueuedLogLines) {
    queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(droppedLogLines));
  }
  queue.push_back(
      {foreignText(level.empty() ? "trace" : level, 16), foreignText(text, maxLogTextBytes)});
}

std::vector<LogLine> takeLines(LogState& log, std::size_t maxCount) MORVA_REQUIRES(log.outputLock) {
  std::deque<LogLine>& queue = log.debugLogQueue;
  const auto count = static_cast<std::ptrdiff_t>(std::min(maxCount, queue.size()));
  std::vector<LogLine> lines(std::make_move_iterator(queue.begin()),
                             std::make_move_iterator(queue.begin() + count));
  queue.erase(queue.begin(), queue.begin() + count);
  return lines;
}

json lineArgs(LogLine line) {
  return json::array(
      {{{"source", "agent"}, {"level", std::move(line.level)}, {"text", std::move(line.text)}}});
}

void sendLines(std::vector<LogLine> lines) {
  EventBatch batch;
  for (LogLine& line : lines) batch.add("appendDebugLog", lineArgs(std::move(line)));
  (void)batch.send();  // the browser is gone; the reader will notice
}

bool enoughToSend(const LogState& log) MORVA_REQUIRES(log.outputLock) {
  return !log.sending && log.debugLogQueue.size() >= logLinesThatSend;
}

// Sends one batch, without the lock; whoever calls is the one who sends.
void sendBatch(LogState& log) MORVA_REQUIRES(log.outputLock) {
  try {
    std::vector<LogLine> lines = takeLines(log, maxLogLinesPerBatch);
    const Unlocked unlocked(log.outputLock);
    sendLines(std::move(lines));
  } catch (const std::exception&) {  // out of memory: these lines are lost, the log goes on
  }
}

// Ends sending, after a batch for each flush that was asked for meanwhile.
void endSending(LogState& log) MORVA_REQUIRES(log.outputLock) {
  while (std::exchange(log.flushWanted, false)) sendBatch(log);
  log.sending = false;
  log.enoughLines.notifyOne();  // lines that came meanwhile may be enough for the sender thread
}

void sendBatches(LogState& log) MORVA_REQUIRES(log.outputLock) {
  log.sending = true;
  sendBatch(log);
  endSending(log);
}

std::vector<json> argsOf(std::vector<LogLine> lines) {
  std::vector<json> args;
  args.reserve(lines.size());
  for (LogLine& line : lines) args.push_back(lineArgs(std::move(line)));
  return args;
}

// The next lines, for the caller to send; none while another thread sends.
std::vector<json> beginSending() {
  LogState& log = logState();
  const Lock lock(log.outputLock);
  if (log.sending || log.debugLogQueue.empty()) return {};
  std::vector<json> lines = argsOf(takeLines(log, maxLogLinesPerBatch));
  log.sending = true;
  return lines;
}

void finishSending() {
  LogState& log = logState();
  const Lock lock(log.outputLock);
  endSending(log);
}

void runLogSender() {
  LogState& log = logState();
  const Lock lock(log.outputLock);
  for (;;) {
    while (!enoughToSend(log)) log.enoughLines.wait(log.outputLock);
    sendBatches(log);
  }
}

}  // namespace

void appendDebugLog(std::string_view text, std::string_view level, bool flushNow) {
  LogState& log = logState();
  const Lock lock(log.outputLock);
  pushLine(log, text, level);
  if (log.sending) {
    log.flushWanted = log.flushWanted || flushNow;
  } else if (flushNow || enoughToSend(log)) {
    sendBatches(log);
  }
}

void queueDebugLog(std::string_view text, std::string_view level) noexcept {
  try {
    LogState& log = logState();
    const Lock lock(log.outputLock);
    pushLine(log, text, level);
    if (!log.senderStarted) log.senderStarted = runDetached("log sender", runLogSender);
    if (enoughToSend(log)) log.enoughLines.notifyOne();
  } catch (const std::exception&) {  // out of memory: this line is lost
  }
}

std::vector<json> takeDebugLogEvents(std::size_t maxCount) {
  LogState& log = logState();
  std::vector<LogLine> lines;
  {
    const Lock lock(log.outputLock);
    lines = takeLines(log, maxCount);
  }
  return argsOf(std::move(lines));
}

void sendBehindLogLines(const WriteWithLines& write) {
  const std::vector<json> lines = beginSending();
  if (lines.empty()) return write(lines);
  try {
    write(lines);
  } catch (...) {
    finishSending();
    throw;
  }
  finishSending();
}

}  // namespace media::win::chrome_inspect
