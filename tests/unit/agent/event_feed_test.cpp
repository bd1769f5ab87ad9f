#include "agent/event_feed.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct FeedCase {
  const char* name;
  std::string block;
  const char* event;  // nullptr: passed over
};

const FeedCase feedCases[] = {
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
    {"too deep", "data: " + std::string(100'000, '['), nullptr},
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
  for (const FeedCase& c : feedCases) {
    SCOPED_TRACE(c.name);
    json event;
    EXPECT_EQ(readFeedEvent(c.block, event), c.event != nullptr);
    if (c.event != nullptr) {
      EXPECT_EQ(event.dump(), c.event);
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
