// The tab that the panel names, and the note about it.
#include "browser_tools/context_prompt.h"

#include "browser_tools/browser_context.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string window =
    "The browser for this turn is the user's Chrome window. browser_read, browser_find, "
    "browser_scope, browser_click, browser_type, browser_select, browser_batch, and "
    "browser_navigate act on that window. Do not claim the browser connection is unavailable.";
const std::string noTab = window + " No http(s) tab is active.";

std::string activeTab(const std::string& titleAndUrl) {
  return window + " Active tab (the page the user is looking at now): " + titleAndUrl +
         " browser_read with no tab argument reads this tab, not an earlier one.";
}

const std::pair<const char*, std::string> promptCases[] = {
    {R"({})", noTab},
    {R"(null)", noTab},
    {R"({"tabs":[{"id":1,"url":"u"}],"currentTitle":"t"})", noTab},
    {R"({"currentUrl":5})", noTab},
    {R"({"currentUrl":"U"})", activeTab(" U")},
    {R"({"currentUrl":"U","currentTitle":["A"]})", activeTab(" U")},
    {R"({"currentUrl":"U","currentTitle":"A"})", activeTab("A U")},
    {R"({"currentUrl":"U","currentTitle":"A","tabs":[]})", activeTab("A U") + " Open tabs:"},
    {R"({"currentUrl":"U","currentTitle":"A","tabs":[{"id":7,"title":"A","url":"U"}]})",
     activeTab("A U") + " Open tabs: [7] A U"},
    {R"({"currentUrl":"U","currentTitle":"A","tabs":[{"title":"B"},5,null,"x",[],
        {"id":-3,"url":"C"},{"id":9007199254740993,"title":"D","url":"E"}]})",
     activeTab("A U") + " Open tabs: [0] B  [-3]  C [9007199254740993] D E"},
    {R"({"currentUrl":"U","tabs":[{"id":"7","title":5,"url":null}]})",
     activeTab(" U") + " Open tabs: [0]  "},
    // A page cannot begin a line of its own.
    {R"({"currentUrl":"U\n","currentTitle":"A\nB\r\nC","tabs":[{"title":"T\nX","url":"V\rW"}]})",
     activeTab("A B  C U ") + " Open tabs: [0] T X V W"},
    {R"({"currentUrl":"U","currentTitle":"\u000B\f\u0085a\u2028b\u2029\u2027\u0084\u00e9"})",
     activeTab("   a b \xE2\x80\xA7\xC2\x84\xC3\xA9 U")},
};

TEST(BrowserContextPrompt, IsShortBeforeAnyContextCame) {
  EXPECT_TRUE(browserContext().is_null());
  EXPECT_EQ(browserContextPrompt(), "No Chrome tab is attached to this turn.");
}

TEST(BrowserContextPrompt, NamesTheActiveTabAndTheOpenOnes) {
  for (const auto& [context, wanted] : promptCases) {
    setBrowserContext(json::parse(context));
    EXPECT_EQ(browserContextPrompt(), wanted) << context;
  }
}

TEST(BrowserContext, IsTheLastOneAndAlwaysWhole) {
  setBrowserContext({{"currentUrl", "a"}, {"currentTitle", "t"}});
  setBrowserContext({{"a", 0}, {"b", 0}});
  EXPECT_EQ(browserContext().dump(), R"({"a":0,"b":0})");
  runThreads(4, [](int number) {
    for (int i = 0; i < 100; ++i) {
      setBrowserContext({{"a", number}, {"b", number}});
      const json seen = browserContext();
      ASSERT_EQ(seen.at("a"), seen.at("b"));
    }
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
