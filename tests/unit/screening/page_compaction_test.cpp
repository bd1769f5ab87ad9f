#include "screening/page_compaction.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct CompactCase {
  const char* name;
  const char* result;
  const char* wanted;
};

void check(const CompactCase& c) {
  EXPECT_EQ(compactBrowserResult(json::parse(c.result)).dump(), json::parse(c.wanted).dump())
      << c.name;
}

const CompactCase unchangedCases[] = {
    {"a list", R"([{"tool":"browser_read"}])", R"([{"tool":"browser_read"}])"},
    {"no tool", R"({"title":"t","pageText":"p"})", R"({"title":"t","pageText":"p"})"},
    {"a tool that is no text", R"({"tool":1,"title":"t"})", R"({"tool":1,"title":"t"})"},
    {"a tool that is none of the eight", R"({"tool":"browser_hover","title":"t","data":{"x":1}})",
     R"({"tool":"browser_hover","title":"t","data":{"x":1}})"},
};

TEST(CompactBrowserResult, LeavesWhatItDoesNotKnow) {
  for (const CompactCase& c : unchangedCases) check(c);
}

std::string bytes(std::size_t count) { return std::string(count, 'a'); }

TEST(CompactBrowserResult, ShortensTheAddress) {
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
      const json compacted = compactBrowserResult({{"tool", tool}, {"url", url}});
      EXPECT_EQ(compacted.at("url").get<std::string>(), wanted) << tool;
      EXPECT_NO_THROW((void)compacted.dump());
    }
  }
  EXPECT_EQ(compactBrowserResult({{"url", {bytes(200)}}}).at("url"), json({bytes(200)}));
}

TEST(CompactBrowserResult, KeepsWhatStandsBesideTheDataButTheTitleAndThePageText) {
  check({"find",
         R"({"tool":"browser_find","ok":true,"title":"t","epoch":1,"other":[1],"pageText":"p",
         "prompt_injection_detected":true,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "scope":{"active":true,"ref":"r","name":"n","source":"s","bounds":[1]},"data":"d"})",
         R"({"tool":"browser_find","ok":true,"epoch":1,"other":[1],
         "prompt_injection_detected":true,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "scope":{"active":true,"ref":"r","name":"n","source":"s"},"data":"d"})"});
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

TEST(CompactBrowserResult, KeepsOfTheDataOfAReadResultWhatTheAgentNeeds) {
  for (const auto& [data, wanted] : dataCases) {
    const json result = {{"tool", "browser_read"}, {"data", json::parse(data)}};
    EXPECT_EQ(compactBrowserResult(result).at("data").dump(), json::parse(wanted).dump());
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

const std::tuple<std::size_t, bool, std::size_t> budgetCases[] = {
    {0, false, 0}, {12, false, 12}, {13, false, 12}, {400, false, 12},
    {0, true, 0},  {8, true, 8},    {9, true, 8},
};

TEST(CompactPageData, KeepsEightItemsThatMatchAndTwelveOthers) {
  for (const auto& [count, isFind, kept] : budgetCases) {
    SCOPED_TRACE(testing::Message() << count << (isFind ? " found" : " read"));
    json data = {{"items", numberedItems(count)}, {"truncated", "by the extension"}};
    if (isFind) data["matchCount"] = nullptr;  // that it is there is what counts
    const json out = compactPageData(data, true);
    EXPECT_EQ(out.at("items").size(), kept);
    EXPECT_EQ(refsOf(out.at("items")), refsOf(numberedItems(kept)));
    EXPECT_EQ(out.at("truncated"), count > kept ? json(true) : json("by the extension"));
    EXPECT_EQ(out.value("itemsOmitted", std::size_t{0}), count - kept);
    EXPECT_EQ(out.contains("itemsOmitted"), count > kept);
  }
}

TEST(CompactPageData, KeepsTwoZoneHintsAndEightFiles) {
  for (const std::size_t count : {0U, 2U, 3U, 8U, 9U}) {
    const json out = compactPageData(
        {{"zoneHints", numberedItems(count)}, {"files", numberedItems(count)}}, true);
    EXPECT_EQ(out.at("zoneHints").size(), std::min<std::size_t>(count, 2));
    EXPECT_EQ(out.at("files").size(), std::min<std::size_t>(count, 8));
  }
}

TEST(CompactPageData, SkipsFilesThatAreNoObjectsWithoutCountingThem) {
  json files = json::array();
  for (int i = 0; i < 10; ++i) {
    files.push_back(i);
    files.push_back({{"name", i}});
  }
  const json out = compactPageData({{"files", files}}, true);
  ASSERT_EQ(out.at("files").size(), 8U);
  EXPECT_EQ(out.at("files").back(), json({{"name", 7}}));
}

TEST(CompactPageData, OnlyCountsTheItemsOfASummary) {
  const json data = json::parse(R"({"count":3,"truncated":true,"pageTextOmitted":true,"ref":"r",
      "role":"o","name":"n","value":"v","options":[1],"matchCount":2,"element":{"role":"x"},
      "items":[1,2,3],"zoneHints":[{}],"pageText":"p","files":[{"url":"u","x":1},2],
      "scope":{"ref":"s","x":1}})");
  EXPECT_EQ(compactPageData(data, false), json::parse(R"({"count":3,"truncated":true,
      "pageTextOmitted":true,"ref":"r","role":"o","name":"n","value":"v","itemsReturned":3,
      "files":[{"url":"u"}],"scope":{"ref":"s"},"compacted":true})"));
  EXPECT_EQ(compactPageData({{"items", {{"a", 1}}}}, false), json({{"compacted", true}}));
}

TEST(IsKeyItem, KnowsRolesTypesAndNames) {
  for (const char* role :
       {"textbox", "combobox", "checkbox", "radio", "searchbox", "spinbutton", "switch"}) {
    EXPECT_TRUE(isKeyItem({{"role", role}})) << role;
  }
  for (const char* type : {"text", "email", "password", "search", "number"}) {
    EXPECT_TRUE(isKeyItem({{"type", type}})) << type;
  }
  for (const char* name :
       {"save", "Submit", "APPLY now", "go next", "ContinueShopping", "resaved"}) {
    EXPECT_TRUE(isKeyItem({{"name", name}})) << name;
  }
  for (const json& item :
       {json({{"role", "Textbox"}}), json({{"role", "button"}}), json({{"type", "submit"}}),
        json({{"name", "s ave"}}), json({{"name", {"save"}}}), json({{"role", {"textbox"}}}),
        json({{"value", "save"}}), json("textbox"), json::array({"textbox"})}) {
    EXPECT_FALSE(isKeyItem(item)) << item;
  }
}

TEST(SelectReadItems, TakesKeyItemsFirstThenTheOthersInPageOrder) {
  json items = json::array();
  for (int i = 0; i < 6; ++i) {
    items.push_back({{"ref", "p" + std::to_string(i)}, {"role", "link"}, {"x", 1}});
    items.push_back({{"ref", "k" + std::to_string(i)}, {"role", "textbox"}});
  }
  EXPECT_EQ(refsOf(selectReadItems(items, 3)), "k0 k1 k2 ");
  EXPECT_EQ(refsOf(selectReadItems(items, 8)), "k0 k1 k2 k3 k4 k5 p0 p1 ");
  EXPECT_EQ(refsOf(selectReadItems(items, 50)), "k0 k1 k2 k3 k4 k5 p0 p1 p2 p3 p4 p5 ");
  EXPECT_EQ(selectReadItems(items, 50).back().dump(), R"({"ref":"p5","role":"link"})");
  EXPECT_EQ(selectReadItems(items, 0), json::array());
  EXPECT_EQ(selectReadItems("text", 3), "text");
}

const CompactCase actionCases[] = {
    {"known keys",
     R"({"tool":"browser_click","ok":true,"url":"u","epoch":1,"revision":2,"error":"e","title":"t",
         "action":"click","prompt_injection_detected":true,"prompt_injection_kind":"k",
         "prompt_injection_reason":"r","scope":{"ref":"s","x":1},"html":"no","pageText":"no",
         "items":[1],"model":{"pageText":"no"}})",
     R"({"tool":"browser_click","ok":true,"url":"u","epoch":1,"revision":2,"error":"e","title":"t",
         "action":"click","prompt_injection_detected":true,"prompt_injection_kind":"k",
         "prompt_injection_reason":"r","scope":{"ref":"s"},"compacted":true})"},
    {"small data stays", R"({"tool":"browser_type","data":{"typed":3,"nested":{"a":[1]}}})",
     R"({"tool":"browser_type","data":{"typed":3,"nested":{"a":[1]}},"compacted":true})"},
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
    {"a navigation", R"({"tool":"browser_navigate","tabs":[1],"title":"t","data":"d"})",
     R"({"tool":"browser_navigate","title":"t","data":"d","compacted":true})"},
    {"known keys of a batch",
     R"({"tool":"browser_batch","ok":false,"url":"u","epoch":1,"revision":2,"error":"e",
         "batch_error":"b","all_ok":false,"first_failure":1,"title":"t","model":{"pageText":"no"},
         "prompt_injection_detected":true,"prompt_injection_kind":"k","prompt_injection_reason":"r",
         "data":{"pageText":"no"},"pageText":"no","steps":{"a":1}})",
     R"({"tool":"browser_batch","ok":false,"url":"u","epoch":1,"revision":2,"error":"e",
         "batch_error":"b","all_ok":false,"first_failure":1,"title":"t",
         "prompt_injection_detected":true,"prompt_injection_kind":"k","prompt_injection_reason":"r",
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

TEST(CompactBrowserResult, KeepsOfAnActionOrABatchWhatItDid) {
  for (const CompactCase& c : actionCases) check(c);
}

}  // namespace
}  // namespace media::win::chrome_inspect
