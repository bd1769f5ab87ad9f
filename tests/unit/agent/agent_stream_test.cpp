#include "agent/agent_stream.h"

#include "support/scripted_exchange.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Read = ScriptedExchange::Read;

const Read end{"", Read::end, 0};

const std::tuple<const char*, std::deque<Read>, bool, std::vector<std::string>> bodyCases[] = {
    {"an empty body", {end}, true, {}},
    {"pieces as they come", {{"ab"}, {"c"}, end}, true, {"ab", "c"}},
    {"a read gives less than was promised", {{"ab", Read::data, 10}, end}, true, {"ab"}},
    {"broken off between pieces", {{"ab"}, {"", Read::availableFails}}, false, {"ab"}},
    {"broken off within a piece", {{"ab"}, {"cd", Read::readFails}}, false, {"ab"}},
    {"broken off at once", {{"", Read::availableFails}}, false, {}},
};

TEST(ReadAgentBody, CollectsOrHandsOver) {
  for (const auto& [name, reads, ok, pieces] : bodyCases) {
    SCOPED_TRACE(name);
    std::string joined = "before ";
    for (const std::string& piece : pieces) joined += piece;
    ScriptedExchange collected(reads);
    std::string target = "before ";
    EXPECT_EQ(readAgentBody(collected, target, {}, {}), ok);
    EXPECT_EQ(target, joined);

    ScriptedExchange handed(reads);
    std::vector<std::string> taken;
    target = "untouched";
    EXPECT_EQ(readAgentBody(handed, target,
                            [&taken](std::string_view piece) { taken.emplace_back(piece); }, {}),
              ok);
    EXPECT_EQ(taken, pieces);
    EXPECT_EQ(target, "untouched");
  }
}

TEST(ReadAgentBody, AsksForAMegabyteAtMost) {
  ScriptedExchange request({{std::string(3'000'000, 'x')}, end});
  std::string target;
  EXPECT_TRUE(readAgentBody(request, target, {}, {}));
  EXPECT_EQ(target.size(), 3'000'000U);
  for (const std::size_t capacity : request.capacities) EXPECT_LE(capacity, 1024U * 1024);
}

TEST(ReadAgentBody, AsksWhetherToStopBeforeEachRead) {
  for (int allowed = 0; allowed <= 3; ++allowed) {
    SCOPED_TRACE(allowed);
    ScriptedExchange request({{"a"}, {"b"}, end});
    std::string target;
    int asked = 0;
    EXPECT_EQ(readAgentBody(request, target, {}, [&] { return asked++ == allowed; }), allowed == 3);
    EXPECT_EQ(target, std::string("ab").substr(0, static_cast<std::size_t>(allowed)));
    EXPECT_EQ(asked, std::min(allowed + 1, 3));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
