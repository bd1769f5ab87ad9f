#include "screening/page_result.h"

#include "support/page_result_of.h"
#include "support/page_tree.h"
#include "support/random_page.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string bytes(std::size_t count) { return std::string(count, 'a'); }

TEST(PageResult, ShortensTheAddress) {
  const std::string euro = "\xE2\x82\xAC";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {bytes(120), bytes(120)},
      {bytes(121), bytes(120) + "..."},
      {bytes(33) + "?" + bytes(149), bytes(33)},
      {bytes(32) + "?" + bytes(149), bytes(32) + "?" + bytes(87) + "..."},
      {bytes(50) + "?" + bytes(69), bytes(50) + "?" + bytes(69)},  // 120 bytes are not too many
      {bytes(118) + euro, bytes(118) + "..."},
      {bytes(117) + euro, bytes(117) + euro},
  };
  for (const auto& [url, wanted] : cases) {
    EXPECT_EQ(pageResult({{"tool", "browser_hover"}, {"url", url}}).at("url"), wanted);
  }
}

struct CompactCase {
  const char* name;
  const char* result;
  const char* wanted;
};

// One of each kind, of which AnyPage below makes all that may be in it.
const CompactCase compactCases[] = {
    {"no tool", R"({"title":"t","pageText":"p"})", R"({"title":"t","pageText":"p"})"},
    {"a tool that is none of the eight", R"({"tool":"browser_hover","title":"t","data":{"x":1}})",
     R"({"tool":"browser_hover","title":"t","data":{"x":1}})"},
    {"a read or find result",
     R"({"tool":"browser_find","title":"t","epoch":1,"other":[1],"pageText":"p",
         "scope":{"active":true,"ref":"r","bounds":[1]},
         "data":{"pageText":"Hello","items":[{"ref":"e3","name":"Save","html":"h"},"odd"],
         "files":[{"url":"u","x":1},"odd"],"zoneHints":[{"ref":"1","x":1},5,{"ref":"3"}]}})",
     R"({"tool":"browser_find","epoch":1,"other":[1],"scope":{"active":true,"ref":"r"},
         "data":{"pageTextOmitted":true,"items":[{"ref":"e3","name":"Save"},"odd"],
         "files":[{"url":"u"}],"zoneHints":[{"ref":"1"},5]}})"},
    {"an action that brought back a page, among other things",
     R"({"tool":"browser_click","ok":true,"html":"no","pageText":"no","items":[1],
         "data":{"typed":3,"after":[{"pageText":"no","name":"n","items":[1,2]}]}})",
     R"({"tool":"browser_click","ok":true,"compacted":true,
         "data":{"typed":3,"after":[{"name":"n","itemsReturned":2,"compacted":true}]}})"},
    {"a batch",
     R"({"tool":"browser_batch","all_ok":false,"model":{"pageText":"no"},"pageText":"no",
         "steps":[{"index":0,"action":"click","waited_ms":5,"html":"no","data":{"ref":"a"}},
         {"action":"read","data":{"items":[1,2],"pageText":"no"}},
         {"action":"find","data":{"items":[{"ref":"a","x":1}],"matchCount":1,"pageText":"no"}},
         {"action":"batch","data":{"steps":[{"data":{"pageText":"no"}}]}},null]})",
     R"({"tool":"browser_batch","all_ok":false,"compacted":true,"stepsReturned":5,
         "steps":[{"index":0,"action":"click","waited_ms":5,"data":{"ref":"a"}},
         {"action":"read","data":{"itemsReturned":2,"compacted":true}},
         {"action":"find","data":{"items":[{"ref":"a"}],"matchCount":1,"pageTextOmitted":true}},
         {"action":"batch","data":{"steps":[{"data":{"compacted":true}}]}},null],
         "actionTrail":["click","read","find","batch",""]})"},
};

TEST(PageResult, KeepsWhatTheAgentNeeds) {
  for (const CompactCase& c : compactCases) {
    EXPECT_EQ(pageResult(json::parse(c.result)), json::parse(c.wanted)) << c.name;
  }
}

// As many items as `pattern` has letters: "k" to act on, others not. Returns the numbers of those
// that the agent gets, "..." for others.
std::string itemsOf(const std::string& pattern, bool isFind) {
  json data = {{"items", json::array()}};
  if (isFind) data["matchCount"] = nullptr;  // that it is there is what counts
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    data["items"].push_back(
        {{"ref", std::to_string(i)}, {"role", pattern[i] == 'k' ? "radio" : "link"}});
  }
  data = pageResult({{"tool", "browser_read"}, {"data", data}}).at("data");
  std::string refs;
  for (const json& item : data.at("items")) refs += item.at("ref").get<std::string>() + " ";
  if (data.contains("truncated")) refs += "and " + data.at("itemsOmitted").dump();
  return refs;
}

TEST(PageResult, TakesEightItemsThatMatchAndTwelveOthersKeyItemsFirst) {
  EXPECT_EQ(itemsOf("....k...", true), "0 1 2 3 4 5 6 7 ");
  EXPECT_EQ(itemsOf("....k...k", true), "0 1 2 3 4 5 6 7 and 1");
  EXPECT_EQ(itemsOf("..........k.", false), "10 0 1 2 3 4 5 6 7 8 9 11 ");
  EXPECT_EQ(itemsOf("..........k..k", false), "10 13 0 1 2 3 4 5 6 7 8 9 and 2");
  EXPECT_EQ(itemsOf(".kkkkkkkkkkkkk", false), "1 2 3 4 5 6 7 8 9 10 11 12 and 2");
}

// What is said twice is judged as it is passed on: by the last time.
TEST(PageResult, TakesTheLastOfSeveralMembersOfOneName) {
  for (const std::size_t others : {0U, 29U, 30U, 100U}) {
    std::string text = R"({"note":"first",)";
    for (std::size_t i = 0; i < others; ++i) text += "\"k" + std::to_string(i) + "\":0,";
    text += R"("tool":"browser_hover","note":"last"})";
    JsonDocument document;
    std::string result;
    std::string error;
    bool isFlagged = false;
    ASSERT_EQ(readJson(text, document, error), ParseOutcome::ok);
    ASSERT_TRUE(appendPageResult(document, document.root(), result, isFlagged, error));
    EXPECT_EQ(result.find("first"), std::string::npos);
    EXPECT_EQ(json::parse(result).size(), others + 2);
    EXPECT_EQ(json::parse(result).at("note"), "last");
  }
}

constexpr int rounds = 400;

std::uint32_t draw(void* random) {
  return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(random))());
}

json byTree(const json& page) {
  try {
    return pageResultByTree(page);
  } catch (const json::exception& failure) {
    return failure.what();
  }
}

TEST(AnyPage, IsJudgedAndCutDownAsByTheFunctionsOverTrees) {
  std::mt19937 random(7);
  RandomPage pages(draw, &random);
  int flagged = 0;
  int refused = 0;  // for a verdict that is no boolean
  for (int round = 0; round < rounds; ++round) {
    const bool wellFormed = round % 2 == 0;
    const json page = pages.result(wellFormed);
    const json result = pageResult(page);
    ASSERT_EQ(result, byTree(page)) << page;
    refused += result.is_string();
    flagged += result.is_object() && result.value("prompt_injection_detected", json()) == true;
    if (wellFormed && page.at("tool") != "browser_navigate") {
      ASSERT_EQ(dumpJson(result).find(RandomPage::pageText), std::string::npos);
    }
  }
  EXPECT_GT(flagged, rounds / 10);
  EXPECT_LT(flagged, rounds);
  EXPECT_GT(refused, rounds / 100);
}

}  // namespace
}  // namespace media::win::chrome_inspect
