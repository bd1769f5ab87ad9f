// What the answer to a tool call costs the host: judging text next to a search for each phrase in
// turn, and the whole answer next to parsing its frame and dumping what is left of it. Prints one
// JSON object of microseconds; the two sides of a comparison take turns, so that a disturbance hits
// both. Needs no library, so it runs on every system.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "screening/injection_text.h"
#include "screening/page_result.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr std::string_view words[] = {
    "the ",    "lamp ",  "is ",   "delivered ", "within ",  "two ", "days; ", "see ",  "our ",
    "terms. ", "It ",    "has ",  "a ",         "switch, ", "and ", "comes ", "with ", "bulbs ",
    "of ",     "7 W.\n", "More ", "pictures ",  "below. ",  "Buy ", "now: ",  "EUR ",  "19.90. "};

// Ordinary text in which nothing is found; always the same.
std::string madeText(std::size_t bytes) {
  std::string text;
  for (std::uint32_t state = 1; text.size() < bytes;) {
    state = state * 1664525U + 1013904223U;
    text += words[(state >> 16U) % std::size(words)];
  }
  text.resize(bytes);
  return text;
}

// A frame of about `bytes` bytes with the model of a page, two thirds of it elements.
std::string madeFrame(std::size_t bytes) {
  json items = json::array();
  for (std::size_t i = 0; i * 300 < bytes * 2; ++i) {
    const std::string number = std::to_string(i);
    items.push_back({{"ref", "e" + number},
                     {"role", i % 9 == 0 ? "textbox" : "link"},
                     {"name", "Element number " + number},
                     {"bounds", {{"x", 20}, {"y", i}, {"width", 240}, {"height", 24}}},
                     {"path", "body > main > div:nth-child(" + number + ")"}});
  }
  const json data = {{"count", items.size()}, {"items", items}, {"pageText", madeText(bytes / 3)}};
  const json page = {{"tool", "browser_read"}, {"ok", true}, {"tabId", 1}, {"data", data}};
  return json{{"requestId", "cht-1"}, {"ok", true}, {"data", page}}.dump();
}

std::size_t searchEachPhrase(std::string_view text) {
  const std::string folded = foldCase(text);
  std::size_t found = 0;
  for (const Phrase& phrase : injectionPhrases()) {
    if (folded.find(phrase.text) != std::string::npos) ++found;
  }
  return found;
}

std::string answerOf(const std::string& frame) {
  JsonDocument reply;
  std::string answer;
  std::string error;
  if (readJson(frame, reply, error) == ParseOutcome::ok) {
    (void)appendPageResult(reply, reply.root()["data"], answer, error);
  }
  return answer;
}

std::string parsedAndDumped(const std::string& frame, const json& compacted) {
  const json reply = json::parse(frame);
  return reply.is_object() ? compacted.dump() : "";
}

double microseconds(const std::function<std::size_t()>& work, std::size_t wanted) {
  const auto before = Clock::now();
  const std::size_t result = work();
  const std::chrono::duration<double, std::micro> spent = Clock::now() - before;
  if (result != wanted) std::fprintf(stderr, "unexpected result: %zu\n", result);
  return spent.count();
}

// The least that each took: whatever else the machine does only adds to it. Both must give
// `wanted`.
json inTurns(int rounds, std::size_t wanted, const std::function<std::size_t()>& ours,
             const std::function<std::size_t()>& plain) {
  double oursUs = std::numeric_limits<double>::max();
  double plainUs = oursUs;
  for (int round = 0; round < rounds; ++round) {
    oursUs = std::min(oursUs, microseconds(ours, wanted));
    plainUs = std::min(plainUs, microseconds(plain, wanted));
  }
  return {{"ours", oursUs}, {"plain", plainUs}};
}

json callCost(std::size_t bytes) {
  const std::string frame = madeFrame(bytes);
  const json compacted = json::parse(answerOf(frame));
  const int rounds = static_cast<int>(std::clamp<std::size_t>(40'000'000 / bytes, 5, 400));
  json cost = inTurns(
      rounds, compacted.dump().size(), [&] { return answerOf(frame).size(); },
      [&] { return parsedAndDumped(frame, compacted).size(); });
  cost["bytes"] = frame.size();
  return cost;
}

int run() {
  const std::string text = madeText(200'000);
  json costs;
  costs["classify"] = inTurns(
      41, 0, [&] { return classifyInjectionText(text).detected ? std::size_t{1} : 0; },
      [&] { return searchEachPhrase(text); });
  for (const std::size_t bytes : {1'000U, 10'000U, 100'000U, 1'000'000U, 10'000'000U}) {
    costs["calls"].push_back(callCost(bytes));
  }
  std::printf("%s\n", costs.dump().c_str());
  return 0;
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main() { return media::win::chrome_inspect::run(); }
