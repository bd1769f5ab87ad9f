#include "channel/host_log.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "channel/event_batch.h"
#include "common/detached.h"
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
  std::mutex outputLock;  // guards what follows; not held while a frame is written
  std::condition_variable enoughLines;
  std::deque<LogLine> debugLogQueue;
  bool sending = false;        // a thread is writing a batch; others leave their lines queued
  bool flushWanted = false;    // asked for while a batch was being written
  bool senderStarted = false;  // the thread behind queueDebugLog
};

LogState& logState() {
  static LogState& state = leaked<LogState>();
  return state;
}

void pushLine(LogState& log, std::string_view text, std::string_view level) {
  std::deque<LogLine>& queue = log.debugLogQueue;
  if (queue.size() >= maxQueuedLogLines) {
    queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(droppedLogLines));
  }
  queue.push_back(
      {foreignText(level.empty() ? "trace" : level, 16), foreignText(text, maxLogTextBytes)});
}

std::vector<LogLine> takeLines(LogState& log, std::size_t maxCount) {
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

bool enoughToSend(const LogState& log) {
  return !log.sending && log.debugLogQueue.size() >= logLinesThatSend;
}

// Sends one batch. `lock` is held at the beginning and the end; whoever calls is the one who sends.
void sendBatch(LogState& log, std::unique_lock<std::mutex>& lock) {
  try {
    std::vector<LogLine> lines = takeLines(log, maxLogLinesPerBatch);
    lock.unlock();
    sendLines(std::move(lines));
  } catch (const std::exception&) {  // out of memory: these lines are lost, the log goes on
  }
  if (!lock.owns_lock()) lock.lock();
}

// Ends sending, after a batch for each flush that was asked for meanwhile.
void endSending(LogState& log, std::unique_lock<std::mutex>& lock) {
  while (std::exchange(log.flushWanted, false)) sendBatch(log, lock);
  log.sending = false;
  log.enoughLines.notify_one();  // lines that came meanwhile may be enough for the sender thread
}

void sendBatches(LogState& log, std::unique_lock<std::mutex>& lock) {
  log.sending = true;
  sendBatch(log, lock);
  endSending(log, lock);
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
  const std::lock_guard lock(log.outputLock);
  if (log.sending || log.debugLogQueue.empty()) return {};
  std::vector<json> lines = argsOf(takeLines(log, maxLogLinesPerBatch));
  log.sending = true;
  return lines;
}

void finishSending() {
  LogState& log = logState();
  std::unique_lock lock(log.outputLock);
  endSending(log, lock);
}

void runLogSender() {
  LogState& log = logState();
  std::unique_lock lock(log.outputLock);
  for (;;) {
    log.enoughLines.wait(lock, [&log] { return enoughToSend(log); });
    sendBatches(log, lock);
  }
}

}  // namespace

void appendDebugLog(std::string_view text, std::string_view level, bool flushNow) {
  LogState& log = logState();
  std::unique_lock lock(log.outputLock);
  pushLine(log, text, level);
  if (log.sending) {
    log.flushWanted = log.flushWanted || flushNow;
  } else if (flushNow || enoughToSend(log)) {
    sendBatches(log, lock);
  }
}

void queueDebugLog(std::string_view text, std::string_view level) {
  LogState& log = logState();
  const std::lock_guard lock(log.outputLock);
  pushLine(log, text, level);
  if (!log.senderStarted) log.senderStarted = runDetached("log sender", runLogSender);
  if (enoughToSend(log)) log.enoughLines.notify_one();
}

std::vector<json> takeDebugLogEvents(std::size_t maxCount) {
  LogState& log = logState();
  std::vector<LogLine> lines;
  {
    const std::lock_guard lock(log.outputLock);
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
