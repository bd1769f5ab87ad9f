#include "text/json_parse.h"

#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "made_stream.h"

// What the depth check before each parse costs: parseJson next to the library's parser alone.
namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t mib = 1024 * 1024;

std::string smallEvent() {
  const std::string block = madeStream(1);
  return block.substr(6, block.size() - 8);  // without "data: " and the blank line
}

std::string longText() { return R"({"text":")" + std::string(mib, 'x') + R"("})"; }

// More brackets than levels are allowed, so that the exact count runs as well.
std::string manyObjects() {
  std::string text = "[{}";
  while (text.size() < mib) text += ",{}";
  return text + "]";
}

void parseChecked(benchmark::State& state, std::string (*makeText)()) {
  const std::string text = makeText();
  std::string error;
  for (auto _ : state) {
    nlohmann::json value;
    if (parseJson(text, value, error) != ParseOutcome::ok) state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(value);
  }
}

void parsePlainly(benchmark::State& state, std::string (*makeText)()) {
  const std::string text = makeText();
  for (auto _ : state) {
    auto value = nlohmann::json::parse(text);
    benchmark::DoNotOptimize(value);
  }
}

BENCHMARK_CAPTURE(parseChecked, small_event, smallEvent);
BENCHMARK_CAPTURE(parsePlainly, small_event, smallEvent);
BENCHMARK_CAPTURE(parseChecked, text_of_1_MiB, longText);
BENCHMARK_CAPTURE(parsePlainly, text_of_1_MiB, longText);
BENCHMARK_CAPTURE(parseChecked, many_objects_1_MiB, manyObjects);
BENCHMARK_CAPTURE(parsePlainly, many_objects_1_MiB, manyObjects);

}  // namespace
}  // namespace media::win::chrome_inspect
