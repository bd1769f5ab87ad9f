#include "agent/event_splitter.h"

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "made_stream.h"

namespace media::win::chrome_inspect {
namespace {

void splitStream(benchmark::State& state, Arrival arrival) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string stream = madeStream(count);
  for (auto _ : state) {
    EventSplitter splitter;
    std::size_t blocks = 0;
    const auto onBlock = [&blocks](std::string_view) { ++blocks; };
    arrive(stream, arrival, [&](std::string_view piece) { splitter.feed(piece, onBlock); });
    if (blocks != count) state.SkipWithError("blocks were lost");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(splitStream, one_byte_at_a_time, Arrival::byByte)->Arg(10'000)->Arg(100'000);
BENCHMARK_CAPTURE(splitStream, one_event_per_piece, Arrival::byEvent)->Arg(10'000)->Arg(100'000);
BENCHMARK_CAPTURE(splitStream, all_at_once, Arrival::atOnce)->Arg(10'000)->Arg(100'000);

}  // namespace
}  // namespace media::win::chrome_inspect
