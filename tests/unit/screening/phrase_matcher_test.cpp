#include "screening/phrase_matcher.h"

#include "support/testing.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

std::uint32_t searchNaively(std::span<const Phrase> phrases, std::string_view text) {
  const std::string folded = foldCase(text);
  std::uint32_t found = 0;
  for (const Phrase& phrase : phrases) {
    if (folded.find(phrase.text) != std::string::npos) found |= phrase.groups;
  }
  return found;
}

TEST(PhraseMatcher, KnowsOnlyAsciiCase) {
  const std::vector<Phrase> phrases = {{"k[", 1}, {"\xC3\xA9", 2}};
  const PhraseMatcher matcher(phrases);
  EXPECT_EQ(matcher.groupsIn("K["), 1U);
  EXPECT_EQ(matcher.groupsIn("K{"), 0U);             // '{' is '[' with the case bit
  EXPECT_EQ(matcher.groupsIn("\xE2\x84\xAA["), 0U);  // the Kelvin sign
  EXPECT_EQ(matcher.groupsIn("\xC3\x89"), 0U);       // a capital that is not ASCII
  EXPECT_EQ(matcher.groupsIn(std::string("k\0[", 3)), 0U);
  EXPECT_EQ(matcher.groupsIn(std::string("\0k[", 3)), 1U);
}

std::string randomText(std::minstd_rand& random, std::size_t maxSize, std::string_view alphabet) {
  std::string text(random() % (maxSize + 1), ' ');
  for (char& c : text) c = alphabet[random() % alphabet.size()];
  return text;
}

// Few letters, so that phrases overlap, repeat and are parts of each other all the time.
TEST(PhraseMatcher, FindsWhatASearchForEachPhraseFinds) {
  std::minstd_rand random(5);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> texts;
    for (int i = 0; i < 12; ++i) texts.push_back(randomText(random, 5, "ab ") + "ab"[i % 2]);
    std::vector<Phrase> phrases;
    for (std::size_t i = 0; i < texts.size(); ++i) phrases.push_back({texts[i], 1U << i});
    const PhraseMatcher matcher(phrases);
    for (int i = 0; i < 10; ++i) {
      const std::string text = randomText(random, 12, "abAB c");
      ASSERT_EQ(matcher.groupsIn(text), searchNaively(phrases, text)) << "'" << text << "'";
    }
  }
}

TEST(PhraseMatcher, FindsAPhraseAtEveryPlaceInTextsOfEveryLength) {
  const std::vector<Phrase> phrases = {{"abcdefgh", 1}};
  const PhraseMatcher matcher(phrases);
  for (std::size_t size = 8; size < 70; ++size) {
    for (std::size_t at = 0; at + 8 <= size; ++at) {
      std::string text(size, '.');
      text.replace(at, 8, phrases[0].text);
      ASSERT_EQ(matcher.groupsIn(text), 1U) << text;
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
