#include "agent/event_feed.h"

#include "agent/event_splitter.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Without an event the block is passed over.
const std::tuple<const char*, std::string, const char*> feedCases[] = {
    {"an event", R"(data: {"method":"m","args":[1]})", R"({"args":[1],"method":"m"})"},
    {"without a blank", R"(data:{"method":"m","args":[]})", R"({"args":[],"method":"m"})"},
    {"other members", R"(data: {"method":"m","args":[],"id":5})",
     R"({"args":[],"id":5,"method":"m"})"},
    {"two lines without separator", "data: {\"method\":\"a\ndata: b\",\"args\":[]}",
     R"({"args":[],"method":"ab"})"},
    {"only one blank is dropped", "data: {\"method\":\"a\ndata:  b\",\"args\":[]}",
     R"({"args":[],"method":"a b"})"},
    {"CR LF", "event: x\r\ndata: {\"method\":\"m\",\r\ndata: \"args\":[]}\r",
     R"({"args":[],"method":"m"})"},
    {"only one CR is dropped", "data: {\"method\":\"m\",\"args\":[]}\r\r",
     R"({"args":[],"method":"m"})"},  // the other is blank space in JSON
    {"a CR alone does not end a line", "x: 1\rdata: {\"method\":\"m\",\"args\":[]}", nullptr},
    {"other lines", ": c\nid: 1\ndata: {\"method\":\"m\",\"args\":[]}\nretry: 5",
     R"({"args":[],"method":"m"})"},
    {"half an emoji", R"(data: {"method":"m","args":["\ud83d"]})",
     "{\"args\":[\"\xEF\xBF\xBD\"],\"method\":\"m\"}"},
    {"nothing", "", nullptr},
    {"no data", ": ping", nullptr},
    {"empty data", "data:\ndata: \r", nullptr},
    {"no JSON", "data: {", nullptr},
    {"not UTF-8", "data: {\"method\":\"\xFF\",\"args\":[]}", nullptr},
    {"no object", "data: []", nullptr},
    {"no method", R"(data: {"args":[]})", nullptr},
    {"an empty method", R"(data: {"method":"","args":[]})", nullptr},
    {"a null method", R"(data: {"method":null,"args":[]})", nullptr},
    {"a method of another type", R"(data: {"method":["m"],"args":[]})", nullptr},
    {"no args", R"(data: {"method":"m"})", nullptr},
    {"args of another type", R"(data: {"method":"m","args":{"0":1}})", nullptr},
    {"null args", R"(data: {"method":"m","args":null})", nullptr},
    {"another field", R"(Data: {"method":"m","args":[]})", nullptr},
    {"a field that only begins so", R"(database: {"method":"m","args":[]})", nullptr},
};

TEST(ReadFeedEvent, TakesEventsAndPassesOverTheRest) {
  for (const auto& [name, block, event] : feedCases) {
    SCOPED_TRACE(name);
    JsonDocument read;
    EXPECT_EQ(readFeedEvent(block, read), event != nullptr);
    if (event != nullptr) EXPECT_EQ(read.root().toValue().dump(), event);
  }
}

struct Cut {
  std::vector<std::string> blocks;
  std::string rest;
  bool operator==(const Cut&) const = default;
};

// The rule as it is written: look for the first separator, take what is before it, again.
Cut cutNaively(std::string text) {
  Cut cut;
  for (std::size_t end = text.find("\n\n"); end != text.npos; end = text.find("\n\n")) {
    cut.blocks.push_back(text.substr(0, end));
    text.erase(0, end + 2);
  }
  cut.rest = text;
  return cut;
}

Cut cutAt(const std::string& text, std::vector<std::size_t> places) {
  EventSplitter splitter;
  Cut cut;
  places.push_back(text.size());
  std::size_t done = 0;
  for (const std::size_t place : places) {
    splitter.feed(std::string_view(text).substr(done, place - done),
                  [&cut](std::string_view block) { cut.blocks.emplace_back(block); });
    done = place;
  }
  cut.rest = splitter.pending();
  return cut;
}

const std::string streams[] = {
    "",
    "data: a",
    "data: a\n\n",
    "data: a\n\ndata: b\n\n",
    "data: a\ndata: b\n\nrest\n",
    "\n\n\n\n",
    "\n\n\n",
    "a\n\n\nb\n\n\n\nc",
    "a\r\n\r\nb\n\r\n\n",
    "\xEF\xBB\xBF"
    "data: a\n\n\0\n\n\n"s,
};

// At every pair of places, and byte by byte.
TEST(EventSplitter, CutsAlikeHoweverTheBytesArrive) {
  for (const std::string& stream : streams) {
    const Cut wanted = cutNaively(stream);
    EXPECT_TRUE(cutAt(stream, {}) == wanted) << testing::PrintToString(stream);
    std::vector<std::size_t> everywhere(stream.size());
    std::iota(everywhere.begin(), everywhere.end(), 0);
    EXPECT_TRUE(cutAt(stream, everywhere) == wanted) << testing::PrintToString(stream);
    for (std::size_t first = 0; first <= stream.size(); ++first) {
      for (std::size_t second = first; second <= stream.size(); ++second) {
        EXPECT_TRUE(cutAt(stream, {first, second}) == wanted)
            << testing::PrintToString(stream) << first << " " << second;
      }
    }
  }
}

// Feeds `total` bytes of 64 KiB pieces without a separator.
void feedOneBlock(EventSplitter& splitter, std::size_t total) {
  const std::string piece(65536, 'x');
  for (std::size_t done = 0; done < total; done += piece.size())
    splitter.feed(std::string_view(piece).substr(0, total - done), [](std::string_view) {});
}

TEST(EventSplitter, TakesABlockOf64MiBAndNoMore) {
  EXPECT_EQ(maxEventBlock, 64U * 1024 * 1024);
  EventSplitter splitter;
  feedOneBlock(splitter, maxEventBlock);
  EXPECT_EQ(splitter.pending().size(), maxEventBlock);
  try {
    feedOneBlock(splitter, 1);
    ADD_FAILURE() << "one byte more was taken";
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(), "agent event too large");
  }
}

// Searching from the start again for each piece would take minutes here, not a second.
TEST(EventSplitter, SearchesAHugeBlockOnceAndForgetsIt) {
  EventSplitter splitter;
  constexpr std::size_t size = 32 * 1024 * 1024;
  std::size_t seen = 0;
  const std::string piece(1024, 'x');
  const auto count = [&seen](std::string_view block) { seen += block.size(); };
  for (std::size_t done = 0; done < size; done += piece.size()) splitter.feed(piece, count);
  splitter.feed("\n\n", count);
  EXPECT_EQ(seen, size);
  EXPECT_LT(splitter.heldBytes(), size / 4);  // its memory has been given back
}

TEST(EventSplitter, CutsManySmallBlocksInLinearTime) {
  constexpr std::size_t eventCount = 300'000;
  std::string stream;
  for (std::size_t i = 0; i < eventCount; ++i) stream += "data: 0123456789ab\n\n";
  std::size_t seen = 0;
  EventSplitter splitter;
  splitter.feed(stream, [&seen](std::string_view) { ++seen; });
  EXPECT_EQ(seen, eventCount);
  for (const char byte : stream) splitter.feed({&byte, 1}, [&seen](std::string_view) { ++seen; });
  EXPECT_EQ(seen, 2 * eventCount);
}

}  // namespace
}  // namespace media::win::chrome_inspect
