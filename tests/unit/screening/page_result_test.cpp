#include "screening/page_result.h"

#include "support/page_result_of.h"
#include "support/page_tree.h"
#include "support/random_page.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct CompactCase {
  const char* name;
  const char* result;
  const char* wanted;
};

void check(const CompactCase& c) {
  EXPECT_EQ(pageResult(json::parse(c.result)), json::parse(c.wanted)) << c.name;
}

const CompactCase unchangedCases[] = {
    {"no tool", R"({"title":"t","pageText":"p"})", R"({"title":"t","pageText":"p"})"},
    {"a tool that is no text", R"({"tool":1,"title":"t"})", R"({"tool":1,"title":"t"})"},
    {"a tool that is none of the eight", R"({"tool":"browser_hover","title":"t","data":{"x":1}})",
     R"({"tool":"browser_hover","title":"t","data":{"x":1}})"},
    {"a navigation",
     R"({"tool":"browser_navigate","tabs":[1],"title":"t","data":{"pageText":"p"}})",
     R"({"tool":"browser_navigate","tabs":[1],"title":"t","data":{"pageText":"p"}})"},
};

TEST(PageResult, LeavesWhatItDoesNotKnow) {
  for (const CompactCase& c : unchangedCases) check(c);
}

std::string bytes(std::size_t count) { return std::string(count, 'a'); }

TEST(PageResult, ShortensTheAddress) {
  const std::string euro = "\xE2\x82\xAC";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {bytes(120), bytes(120)},
      {bytes(121), bytes(120) + "..."},
      {bytes(50) + "?" + bytes(149), bytes(50)},
      {bytes(20) + "?" + bytes(179), bytes(20) + "?" + bytes(99) + "..."},
      {bytes(33) + "?" + bytes(149), bytes(33)},
      {bytes(32) + "?" + bytes(149), bytes(32) + "?" + bytes(87) + "..."},
      {bytes(50) + "?" + bytes(69), bytes(50) + "?" + bytes(69)},  // 120 bytes are not too many
      {bytes(20) + "?" + bytes(30) + "?" + bytes(100),
       bytes(20) + "?" + bytes(30) + "?" + bytes(68) + "..."},
      {bytes(118) + euro, bytes(118) + "..."},
      {bytes(117) + euro, bytes(117) + euro},
  };
  for (const auto& [url, wanted] : cases) {
    for (const char* tool : {"browser_read", "browser_click", "browser_batch", "browser_hover"}) {
      EXPECT_EQ(pageResult({{"tool", tool}, {"url", url}}).at("url"), wanted) << tool;
    }
  }
  EXPECT_EQ(pageResult({{"url", {bytes(200)}}}).at("url"), json({bytes(200)}));
}

TEST(PageResult, KeepsWhatStandsBesideTheDataButTheTitleAndThePageText) {
  check({"find",
         R"({"tool":"browser_find","ok":true,"title":"t","epoch":1,"other":[1],"pageText":"p",
         "prompt_injection_detected":false,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "scope":{"active":true,"ref":"r","name":"n","source":"s","bounds":[1]},"data":"d"})",
         R"({"tool":"browser_find","ok":true,"epoch":1,"other":[1],
         "prompt_injection_detected":false,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "scope":{"active":true,"ref":"r","name":"n","source":"s"},"data":"d"})"});
}

// What is left of the data of a read result.
json readData(json data) {
  return pageResult({{"tool", "browser_read"}, {"data", std::move(data)}}).at("data");
}

// The data of a read result, and what is left of it.
const std::pair<const char*, const char*> dataCases[] = {
    {R"({"count":1,"truncated":false,"pageTextOmitted":false,"ref":"r","role":"o","name":"n",
         "value":"v","options":["a"],"matchCount":0,"html":"h","url":"u","error":"e","title":"t",
         "model":{},"zones":[],"text":"t","scope":{"ref":"r","x":1},
         "element":{"role":"r","name":"n","value":"v","options":[1],"ref":"no","html":"no"},
         "zoneHints":[{"ref":"r","role":"o","name":"n","interactiveCount":2,"confidence":0.5,
         "roles":["a"],"x":1},5,{"ref":"no"}]})",
     R"({"count":1,"truncated":false,"pageTextOmitted":false,"ref":"r","role":"o","name":"n",
         "value":"v","options":["a"],"matchCount":0,"scope":{"ref":"r"},
         "element":{"role":"r","name":"n","value":"v","options":[1]},
         "zoneHints":[{"ref":"r","role":"o","name":"n","interactiveCount":2,"confidence":0.5,
         "roles":["a"]},5]})"},
    {R"({"items":[{"ref":"e3","role":"button","name":"Save","disabled":false,"checked":true,
         "type":"submit","value":"v","bounds":{"x":1},"html":"h"}]})",
     R"({"items":[{"ref":"e3","role":"button","name":"Save","disabled":false,"checked":true,
         "type":"submit","value":"v"}]})"},
    {R"({"pageText":"Hello","items":[]})", R"({"pageTextOmitted":true,"items":[]})"},
    {R"({"pageText":["Hello"]})", "{}"},
    {R"({"pageText":"a","pageTextOmitted":0})", R"({"pageTextOmitted":true})"},
    {R"({"files":[{"kind":"image","url":"u","name":"n","x":1},"no",{"name":"only"},null,{}]})",
     R"({"files":[{"kind":"image","url":"u","name":"n"},{"name":"only"},{}]})"},
    {R"({"items":{"a":1},"zoneHints":"z","files":5,"element":"e","scope":[1]})",
     R"({"items":{"a":1},"zoneHints":"z","files":5,"element":"e","scope":[1]})"},
    {R"({"items":[1,"a",null,[{}]],"zoneHints":[null,"a"]})",
     R"({"items":[1,"a",null,[{}]],"zoneHints":[null,"a"]})"},
};

TEST(PageResult, KeepsOfTheDataOfAReadResultWhatTheAgentNeeds) {
  for (const auto& [data, wanted] : dataCases) {
    EXPECT_EQ(readData(json::parse(data)), json::parse(wanted));
  }
}

json numberedItems(std::size_t count) {
  json items = json::array();
  for (std::size_t i = 0; i < count; ++i) items.push_back({{"ref", "e" + std::to_string(i)}});
  return items;
}

std::string refsOf(const json& items) {
  std::string refs;
  for (const json& item : items) refs += item.at("ref").get<std::string>() + " ";
  return refs;
}

struct BudgetCase {
  std::size_t count;
  bool isFind;
  std::size_t kept;
};

const BudgetCase budgetCases[] = {
    {0, false, 0}, {12, false, 12}, {13, false, 12}, {400, false, 12},
    {0, true, 0},  {8, true, 8},    {9, true, 8},
};

TEST(PageResult, KeepsEightItemsThatMatchAndTwelveOthers) {
  for (const BudgetCase& c : budgetCases) {
    SCOPED_TRACE(testing::Message() << c.count << (c.isFind ? " found" : " read"));
    json data = {{"items", numberedItems(c.count)}, {"truncated", "by the extension"}};
    if (c.isFind) data["matchCount"] = nullptr;  // that it is there is what counts
    const json out = readData(data);
    EXPECT_EQ(out.at("items").size(), c.kept);
    EXPECT_EQ(refsOf(out.at("items")), refsOf(numberedItems(c.kept)));
    EXPECT_EQ(out.at("truncated"), c.count > c.kept ? json(true) : json("by the extension"));
    EXPECT_EQ(out.value("itemsOmitted", std::size_t{0}), c.count - c.kept);
    EXPECT_EQ(out.contains("itemsOmitted"), c.count > c.kept);
  }
}

TEST(PageResult, KeepsTwoZoneHintsAndEightFiles) {
  for (const std::size_t count : {0U, 2U, 3U, 8U, 9U}) {
    const json out =
        readData({{"zoneHints", numberedItems(count)}, {"files", numberedItems(count)}});
    EXPECT_EQ(out.at("zoneHints").size(), std::min<std::size_t>(count, 2));
    EXPECT_EQ(out.at("files").size(), std::min<std::size_t>(count, 8));
  }
}

TEST(PageResult, SkipsFilesThatAreNoObjectsWithoutCountingThem) {
  json files = json::array();
  for (int i = 0; i < 10; ++i) {
    files.push_back(i);
    files.push_back({{"name", i}});
  }
  const json out = readData({{"files", files}});
  ASSERT_EQ(out.at("files").size(), 8U);
  EXPECT_EQ(out.at("files").back(), json({{"name", 7}}));
}

// Whether an item is taken although as many others stand before it as a result has.
bool isTakenFirst(const json& item) {
  json items = numberedItems(12);
  items.push_back(item);
  return readData({{"items", items}}).at("items").front() == item;
}

TEST(PageResult, TakesItemsThatAPersonWouldActOnByRoleTypeOrName) {
  for (const char* role :
       {"textbox", "combobox", "checkbox", "radio", "searchbox", "spinbutton", "switch"}) {
    EXPECT_TRUE(isTakenFirst({{"role", role}})) << role;
  }
  for (const char* type : {"text", "email", "password", "search", "number"}) {
    EXPECT_TRUE(isTakenFirst({{"type", type}})) << type;
  }
  for (const char* name :
       {"save", "Submit", "APPLY now", "go next", "ContinueShopping", "resaved"}) {
    EXPECT_TRUE(isTakenFirst({{"name", name}})) << name;
  }
  for (const json& item :
       {json({{"role", "Textbox"}}), json({{"role", "button"}}), json({{"type", "submit"}}),
        json({{"name", "s ave"}}), json({{"name", {"save"}}}), json({{"role", {"textbox"}}}),
        json({{"value", "save"}}), json("textbox"), json::array({"textbox"})}) {
    EXPECT_FALSE(isTakenFirst(item)) << item;
  }
}

// The items of a page with so many to act on and others, in turn, that the agent gets.
std::string refsOfMixed(int count) {
  json items = json::array();
  for (int i = 0; i < count; ++i) {
    items.push_back({{"ref", "p" + std::to_string(i)}, {"role", "link"}, {"x", 1}});
    items.push_back({{"ref", "k" + std::to_string(i)}, {"role", "textbox"}});
  }
  return refsOf(readData({{"items", items}}).at("items"));
}

TEST(PageResult, TakesKeyItemsFirstThenTheOthersInPageOrder) {
  EXPECT_EQ(refsOfMixed(2), "k0 k1 p0 p1 ");
  EXPECT_EQ(refsOfMixed(7), "k0 k1 k2 k3 k4 k5 k6 p0 p1 p2 p3 p4 ");
  EXPECT_EQ(refsOfMixed(13), "k0 k1 k2 k3 k4 k5 k6 k7 k8 k9 k10 k11 ");
}

const CompactCase actionCases[] = {
    {"known keys",
     R"({"tool":"browser_click","ok":true,"url":"u","epoch":1,"revision":2,"error":"e","title":"t",
         "action":"click","prompt_injection_detected":false,"prompt_injection_kind":"k",
         "prompt_injection_reason":"r","scope":{"ref":"s","x":1},"html":"no","pageText":"no",
         "items":[1],"model":{"pageText":"no"}})",
     R"({"tool":"browser_click","ok":true,"url":"u","epoch":1,"revision":2,"error":"e","title":"t",
         "action":"click","prompt_injection_detected":false,"prompt_injection_kind":"k",
         "prompt_injection_reason":"r","scope":{"ref":"s"},"compacted":true})"},
    {"small data stays", R"({"tool":"browser_type","data":{"typed":3,"nested":{"a":[1]}}})",
     R"({"tool":"browser_type","data":{"typed":3,"nested":{"a":[1]}},"compacted":true})"},
    {"of a summary only the items are counted",
     R"({"tool":"browser_click","data":{"count":3,"truncated":true,"pageTextOmitted":true,"ref":"r",
         "role":"o","name":"n","value":"v","options":[1],"matchCount":2,"element":{"role":"x"},
         "items":[1,2,3],"zoneHints":[{}],"pageText":"p","files":[{"url":"u","x":1},2],
         "scope":{"ref":"s","x":1}}})",
     R"({"tool":"browser_click","data":{"count":3,"truncated":true,"pageTextOmitted":true,"ref":"r",
         "role":"o","name":"n","value":"v","itemsReturned":3,"files":[{"url":"u"}],
         "scope":{"ref":"s"},"compacted":true},"compacted":true})"},
    {"which are a list", R"({"tool":"browser_click","data":{"items":{"a":1}}})",
     R"({"tool":"browser_click","data":{"compacted":true},"compacted":true})"},
    {"data that is a page is summed up",
     R"({"tool":"browser_select","data":{"items":[1,2],"pageText":"no","count":2,"x":1}})",
     R"({"tool":"browser_select","data":{"itemsReturned":2,"count":2,"compacted":true},
         "compacted":true})"},
    {"so is a page inside the data",
     R"({"tool":"browser_scope","data":{"ref":"e1","after":[{"pageText":"no","name":"n"}]}})",
     R"({"tool":"browser_scope","data":{"ref":"e1","after":[{"name":"n","compacted":true}]},
         "compacted":true})"},
    {"files alone make a page", R"({"tool":"browser_click","data":{"x":1,"files":[{}]}})",
     R"({"tool":"browser_click","data":{"files":[{}],"compacted":true},"compacted":true})"},
    {"so do zone hints", R"({"tool":"browser_click","data":{"x":1,"zoneHints":[]}})",
     R"({"tool":"browser_click","data":{"compacted":true},"compacted":true})"},
    {"known keys of a batch",
     R"({"tool":"browser_batch","ok":false,"url":"u","epoch":1,"revision":2,"error":"e",
         "batch_error":"b","all_ok":false,"first_failure":1,"title":"t","model":{"pageText":"no"},
         "prompt_injection_detected":false,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "data":{"pageText":"no"},"pageText":"no","steps":{"a":1}})",
     R"({"tool":"browser_batch","ok":false,"url":"u","epoch":1,"revision":2,"error":"e",
         "batch_error":"b","all_ok":false,"first_failure":1,"title":"t",
         "prompt_injection_detected":false,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "compacted":true,"steps":{"a":1}})"},
    {"steps",
     R"({"tool":"browser_batch","steps":[{"index":0,"action":"click","waited_ms":5,"auto":true,
         "note":"n","ok":false,"error":"e","code":"c","ref":"r","html":"no","title":"no"},
         {"action":"read","data":{"items":[1,2],"pageText":"no"}},
         {"action":"find","data":{"items":[{"ref":"a","x":1}],"matchCount":1,"pageText":"no"}},
         {"action":"click","data":{"ref":"a"}},
         {"action":"batch","data":{"steps":[{"data":{"pageText":"no"}}]}},"a",null,{"action":5}]})",
     R"({"tool":"browser_batch","steps":[{"index":0,"action":"click","waited_ms":5,"auto":true,
         "note":"n","ok":false,"error":"e","code":"c","ref":"r"},
         {"action":"read","data":{"itemsReturned":2,"compacted":true}},
         {"action":"find","data":{"items":[{"ref":"a"}],"matchCount":1,"pageTextOmitted":true}},
         {"action":"click","data":{"ref":"a"}},
         {"action":"batch","data":{"steps":[{"data":{"compacted":true}}]}},"a",null,{"action":5}],
         "stepsReturned":8,"actionTrail":["click","read","find","click","batch","","",""],
         "compacted":true})"},
    {"a read step without anything that only a page has",
     R"({"tool":"browser_batch","steps":[{"action":"read","data":{"count":1,"markdown":"no"}},
         {"action":"read","data":"no page"}]})",
     R"({"tool":"browser_batch","steps":[{"action":"read","data":{"count":1,"compacted":true}},
         {"action":"read","data":"no page"}],"stepsReturned":2,"actionTrail":["read","read"],
         "compacted":true})"},
};

TEST(PageResult, KeepsOfAnActionOrABatchWhatItDid) {
  for (const CompactCase& c : actionCases) check(c);
}

constexpr int rounds = 3000;

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
  for (int round = 0; round < rounds; ++round) {
    const bool wellFormed = round % 2 == 0;
    const json page = pages.result(wellFormed);
    const json result = pageResult(page);
    ASSERT_EQ(result, byTree(page)) << page;
    flagged += result.is_object() && result.value("prompt_injection_detected", json()) == true;
    if (wellFormed && page.at("tool") != "browser_navigate") {
      ASSERT_EQ(dumpJson(result).find(RandomPage::pageText), std::string::npos);
    }
  }
  EXPECT_GT(flagged, rounds / 10);
  EXPECT_LT(flagged, rounds);
}

}  // namespace
}  // namespace media::win::chrome_inspect
