#include "agent_process/child_output.h"

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <utility>

#include "channel/host_log.h"
#include "common/detached.h"
#include "platform/owned.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t readSize = 4096;

// One byte more than the log keeps: a carriage return there may yet turn out to end the line.
constexpr std::size_t maxKeptBytes = maxLogTextBytes + 1;

void readOutput(const OwnedStream& output) {
  LineSplitter splitter;
  std::array<char, readSize> buffer{};
  std::size_t got = 0;
  while (readSome(output.get(), buffer.data(), buffer.size(), got) == ReadResult::data) {
    try {
      splitter.feed({buffer.data(), got}, [](std::string_view line) { queueDebugLog(line); });
    } catch (const std::exception&) {  // no memory for these lines; the child is still read
    }
  }
}

}  // namespace

void LineSplitter::feed(std::string_view piece,
                        const std::function<void(std::string_view)>& onLine) {
  for (std::size_t end = piece.find('\n'); end != std::string_view::npos; end = piece.find('\n')) {
    keep(piece.substr(0, end));
    piece.remove_prefix(end + 1);
    if (line_.ends_with('\r')) line_.pop_back();
    onLine(line_);
    line_.clear();
  }
  keep(piece);
}

void LineSplitter::keep(std::string_view part) {
  line_ += part.substr(0, maxKeptBytes - std::min(maxKeptBytes, line_.size()));
}

bool startOutputReader(OwnedStream output) {
  const auto shared = std::make_shared<OwnedStream>(std::move(output));
  return runDetached("agent output reader", [shared] { readOutput(*shared); });
}

}  // namespace media::win::chrome_inspect
