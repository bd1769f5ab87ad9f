#include "agent_process/child_output.h"

#include "channel/framing.h"
#include "channel/host_log.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Lines = std::vector<std::string>;

const std::tuple<const char*, std::string, Lines> lineCases[] = {
    {"nothing", "", {}},
    {"CR LF and LF", "a\r\nb\n", {"a", "b"}},
    {"a last line without LF", "a\nb", {"a"}},
    {"empty lines", "\n\r\n\n", {"", "", ""}},
    {"only one carriage return goes", "a\r\r\n", {"a\r"}},
    {"a carriage return inside stays", "a\rb\n", {"a\rb"}},
    {"NUL", std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
    {"the longest line", std::string(1024, 'x') + "\n", {std::string(1024, 'x')}},
    {"the longest line with a carriage return",
     std::string(1024, 'x') + "\r\n",
     {std::string(1024, 'x')}},
    {"a longer line, then another",
     std::string(3000, 'x') + "\nb\n",
     {std::string(1025, 'x'), "b"}},
};

Lines linesOf(std::initializer_list<std::string_view> pieces) {
  LineSplitter splitter;
  Lines lines;
  for (const std::string_view piece : pieces) {
    splitter.feed(piece, [&lines](std::string_view line) { lines.emplace_back(line); });
  }
  return lines;
}

TEST(LineSplitter, CutsTheSameLinesHoweverTheyArrive) {
  for (const auto& [name, output, lines] : lineCases) {
    const std::string_view all = output;
    for (std::size_t cut = 0; cut <= all.size(); ++cut) {
      const std::string_view one = all.substr(cut, 1);  // a byte by itself, too
      ASSERT_EQ(linesOf({all.substr(0, cut), one, all.substr(cut + one.size())}), lines)
          << name << " cut at " << cut;
    }
  }
}

TEST(LineSplitter, ForgetsTheRestOfALineWithoutEnd) {
  LineSplitter splitter;
  const std::string piece(65536, 'x');
  Lines lines;
  const auto keep = [&lines](std::string_view line) { lines.emplace_back(line); };
  for (int i = 0; i < 2000; ++i) splitter.feed(piece, keep);
  splitter.feed("\nb\n", keep);
  EXPECT_EQ(lines, (Lines{std::string(1025, 'x'), "b"}));
}

Lines textsIn(const CapturedOutput::Frames& frames) {
  Lines texts;
  for (const std::string& event : eventsIn(frames)) {
    const auto line = nlohmann::json::parse(event).at("args").at(0);
    EXPECT_EQ(line.at("level"), "trace");
    texts.push_back(line.at("text"));
  }
  return texts;
}

TEST(StartOutputReader, LogsEachLineButAnUnfinishedOne) {
  CapturedOutput output;
  OwnedStream readEnd;
  OwnedStream writeEnd;
  ASSERT_TRUE(makePipe(readEnd, writeEnd));
  ASSERT_TRUE(startOutputReader(std::move(readEnd)));
  std::string text;
  Lines wanted;
  for (int i = 0; i < 20; ++i) {
    text += "line " + std::to_string(i) + (i % 2 == 0 ? "\r\n" : "\n");
    wanted.push_back("line " + std::to_string(i));
  }
  ASSERT_TRUE(writeAll(writeEnd.get(), text.data(), text.size()));
  EXPECT_EQ(textsIn(output.waitFor(1)), wanted);
  ASSERT_TRUE(writeAll(writeEnd.get(), "left", 4));
  writeEnd.reset();
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
}

}  // namespace
}  // namespace media::win::chrome_inspect
