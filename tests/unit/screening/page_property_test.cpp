// What must hold of any page, tried on many that are made up.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "screening/page_compaction.h"
#include "screening/page_screening.h"
#include "support/random_page.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr int rounds = 1500;

class Pages : public testing::TestWithParam<bool> {
 public:
  json next() { return pages_.result(GetParam()); }

 private:
  static std::uint32_t draw(void* random) {
    return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(random))());
  }
  std::mt19937 random_{7};
  RandomPage pages_{draw, &random_};
};

// Whether `key` stands anywhere in `value`, and holds a list of more than `most` elements.
bool holdsLonger(const json& value, const std::string& key, std::size_t most) {
  if (!value.is_structured()) return false;
  for (const auto& [name, member] : value.items()) {
    if (value.is_object() && name == key && member.is_array() && member.size() > most) return true;
    if (holdsLonger(member, key, most)) return true;
  }
  return false;
}

TEST_P(Pages, AreCompactedToWhatCanBeSent) {
  for (int round = 0; round < rounds; ++round) {
    const json page = next();
    ASSERT_NO_THROW((void)compactBrowserResult(page).dump()) << page;
  }
}

TEST_P(Pages, HoldNoFieldThatAloneWouldBeBlankedAfterItWas) {
  for (int round = 0; round < rounds; ++round) {
    json page = next();
    redactInjectedFields(page);
    json again = page;
    redactInjectedFields(again);
    ASSERT_EQ(again, page);  // no field is left that alone would be blanked
  }
}

TEST_P(Pages, AreJudgedAlikeInCapitals) {
  for (int round = 0; round < rounds; ++round) {
    const json page = next();
    std::string text;
    gatherPageText(page, text);
    std::string capitals = text;
    for (char& c : capitals) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    const InjectionVerdict verdict = screenPageModel(page);
    ASSERT_EQ(verdict.kind, classifyInjectionText(capitals).kind) << text;
    ASSERT_EQ(verdict.kind, classifyInjectionText(foldCase(text)).kind) << text;
  }
}

TEST_P(Pages, KeepTheirVerdictThroughCompaction) {
  int flagged = 0;
  for (int round = 0; round < rounds; ++round) {
    json page = next();
    const InjectionVerdict verdict = screenPageModel(page);
    if (!verdict.detected) continue;
    ++flagged;
    markPageModelFlagged(page, verdict);
    const json compacted = compactBrowserResult(page);
    ASSERT_EQ(compacted.at("prompt_injection_detected"), true);
    ASSERT_EQ(compacted.at("prompt_injection_kind"), verdict.kind);
    ASSERT_EQ(compacted.at("prompt_injection_reason"), verdict.reason);
    ASSERT_EQ(compacted.at("error"), page.at("error"));
    ASSERT_EQ(screenPageModel(page).kind, verdict.kind);  // an earlier verdict stands
  }
  EXPECT_GT(flagged, rounds / 10);
  EXPECT_LT(flagged, rounds);
}

INSTANTIATE_TEST_SUITE_P(Random, Pages, testing::Bool());

class WellFormedPages : public Pages {};

TEST_P(WellFormedPages, LoseTheirTextAndKeepNoMoreThanTheBudgets) {
  for (int round = 0; round < rounds; ++round) {
    const json page = next();
    const json compacted = compactBrowserResult(page);
    const std::string text = compacted.dump();
    ASSERT_EQ(text.find(RandomPage::pageText), std::string::npos) << page;
    ASSERT_EQ(text.find("\"pageText\""), std::string::npos) << page;
    ASSERT_FALSE(holdsLonger(compacted, "items", 12)) << page;
    ASSERT_FALSE(holdsLonger(compacted, "zoneHints", 2)) << page;
    if (compacted.contains("data"))
      ASSERT_FALSE(holdsLonger(compacted["data"], "files", 8)) << page;
    ASSERT_LE(compacted.at("url").get_ref<const std::string&>().size(), 123U);
  }
}

TEST_P(WellFormedPages, AreChangedOnlyByTheFirstCompaction) {
  for (int round = 0; round < rounds; ++round) {
    json once = compactBrowserResult(next());
    // How many there were is known to the first alone, and a cut address is cut once more.
    const std::string text = once.dump();
    if (text.find("itemsOmitted") != std::string::npos) continue;
    if (text.find("itemsReturned") != std::string::npos) continue;
    once.erase("url");
    ASSERT_EQ(compactBrowserResult(once), once);
  }
}

INSTANTIATE_TEST_SUITE_P(Random, WellFormedPages, testing::Values(true));

}  // namespace
}  // namespace media::win::chrome_inspect
