#include "chat/turn_stream.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>

#include "made_stream.h"

namespace media::win::chrome_inspect {
namespace {

// Sends frames nowhere while it lives: standard output is where the report goes afterwards.
class FramesNowhere {
 public:
  FramesNowhere() : kept_(::dup(STDOUT_FILENO)) {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
  }
  ~FramesNowhere() {
    ::dup2(kept_, STDOUT_FILENO);
    ::close(kept_);
  }
  FramesNowhere(const FramesNowhere&) = delete;
  FramesNowhere& operator=(const FramesNowhere&) = delete;

 private:
  int kept_;
};

// Split, parsed, translated, serialised and written, one frame per event.
void translateStream(benchmark::State& state, Arrival arrival) {
  const std::string stream = madeStream(static_cast<std::size_t>(state.range(0)));
  const FramesNowhere quiet;
  for (auto _ : state) {
    TurnStream turn(std::make_shared<TurnEvents>("chrome-1"), "chrome");
    arrive(stream, arrival, [&turn](std::string_view piece) { onStreamChunk(turn, piece); });
    if (turn.seq != state.range(0)) state.SkipWithError("events were lost");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(translateStream, one_byte_at_a_time, Arrival::byByte)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(translateStream, one_event_per_piece, Arrival::byEvent)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(translateStream, all_at_once, Arrival::atOnce)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace media::win::chrome_inspect
