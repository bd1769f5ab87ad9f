// What must hold of any page, tried on many that are made up.

#include "screening/page_compaction.h"
#include "screening/page_screening.h"
#include "support/random_page.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int rounds = 1000;

std::uint32_t draw(void* random) {
  return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(random))());
}

void expectRedactedForGood(json page) {
  redactInjectedFields(page);
  json again = page;
  redactInjectedFields(again);
  EXPECT_EQ(again, page);
}

// Whether the page was flagged.
bool expectVerdictToStay(json page) {
  const InjectionVerdict verdict = screenPageModel(page);
  if (!verdict.detected) return false;
  markPageModelFlagged(page, verdict);
  EXPECT_EQ(screenPageModel(page).kind, verdict.kind);
  const json compacted = compactBrowserResult(page);
  EXPECT_EQ(compacted.at("prompt_injection_detected"), true);
  EXPECT_EQ(compacted.at("prompt_injection_kind"), verdict.kind);
  EXPECT_EQ(compacted.at("prompt_injection_reason"), verdict.reason);
  EXPECT_EQ(compacted.at("error"), page.at("error"));
  return true;
}

TEST(AnyPage, IsCutDownToWhatCanBeSentAndKeepsItsVerdict) {
  std::mt19937 random(7);
  RandomPage pages(draw, &random);
  int flagged = 0;
  for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
    const bool wellFormed = round % 2 == 0;
    const json page = pages.result(wellFormed);
    SCOPED_TRACE(round);
    expectRedactedForGood(page);
    if (expectVerdictToStay(page)) ++flagged;
    const std::string text = compactBrowserResult(page).dump();
    if (!wellFormed) continue;
    EXPECT_EQ(text.find(RandomPage::pageText), std::string::npos);
    EXPECT_EQ(text.find("\"pageText\""), std::string::npos);
  }
  EXPECT_GT(flagged, rounds / 10);
  EXPECT_LT(flagged, rounds);
}

}  // namespace
}  // namespace media::win::chrome_inspect
