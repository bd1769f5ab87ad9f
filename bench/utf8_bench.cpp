#include "text/utf8.h"

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

namespace media::win::chrome_inspect {
namespace {

// 1 MiB of the same few bytes.
void repairText(benchmark::State& state, std::string_view pattern) {
  constexpr std::size_t size = 1024 * 1024;
  std::string text;
  while (text.size() + pattern.size() <= size) text += pattern;
  for (auto _ : state) {
    benchmark::DoNotOptimize(makeValidUtf8(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

BENCHMARK_CAPTURE(repairText, ascii, "The quick brown fox. ");
BENCHMARK_CAPTURE(repairText, three_byte_characters, "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E");
BENCHMARK_CAPTURE(repairText, nothing_valid, "\xFF\xC3(\xE6\x97");

}  // namespace
}  // namespace media::win::chrome_inspect
