#include "text/json_limits.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// An array of `count` elements.
std::string listOf(std::size_t count, const std::string& element) {
  return "[" + repeat(count - 1, element + ",") + element + "]";
}

// `count` chains of 999 objects, each the only member of the one before.
std::string chains(std::size_t count) {
  return listOf(count, repeat(999, R"({"a":)") + "1" + std::string(999, '}'));
}

struct LimitCase {
  const char* name;
  std::string text;
  std::string_view exceeded;
};

constexpr std::string_view tooMany = "json has too many values";
constexpr std::string_view tooLarge = "json takes too much memory";

// The texts are made by the test: every other test of the program starts without them.
TEST(JsonLimits, CountValuesAndMemory) {
  const LimitCase cases[] = {
      {"as many values as may be", listOf(maxJsonValues - 1, "1"), ""},
      {"one more", listOf(maxJsonValues, "1"), tooMany},
      {"one more, with blanks", listOf(maxJsonValues, " 1\n"), tooMany},
      {"one more of every kind", listOf(maxJsonValues / 4, R"([],"",null)") + " ", ""},
      {"members",
       "{" + repeat(maxJsonValues / 2, R"("k":0,)") + R"("k":[)" + repeat(maxJsonValues / 2, "0,") +
           "0]}",
       tooMany},
      {"keys are no values", "{" + repeat(maxJsonValues - 2, R"("k" :0,)") + R"("k":0})", ""},
      {"values inside strings", "[\"" + repeat(maxJsonValues, "1,\\\"2,") + "\"]", ""},
      {"empty objects in a list", listOf(maxJsonValues - 1, "{}"), ""},
      {"chains within the memory", chains(1600), ""},
      {"chains past it", chains(1700), tooLarge},
      {"long texts past it", listOf(1'900'000, "\"" + std::string(64, 'x') + "\""), tooLarge},
      {"long keys past it",
       "{" + repeat(1'900'000, "\"" + std::string(32, 'x') + "\":0,") + R"("k":0})", tooLarge},
  };
  for (const LimitCase& c : cases) EXPECT_EQ(jsonLimitExceeded(c.text), c.exceeded) << c.name;
}

}  // namespace
}  // namespace media::win::chrome_inspect
