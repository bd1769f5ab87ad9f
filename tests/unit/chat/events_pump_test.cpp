#include "chat/events_pump.h"

#include "platform/clock.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/failing_new.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* anyFeed = "GET /v1/chat/events";

std::string numbered(int number) {
  return "data: " +
         json{{"method", "numbered"}, {"args", {number}}, {"id", number}, {"x", 1}}.dump() + "\n\n";
}

// A feed that sends `text` and then stays open until the gate opens.
AgentDouble::Script saysAndStays(const std::string& text, Gate& gate) {
  return [text, &gate](ServedConnection& connection) {
    (void)connection.send(std::string(streamHead) + text);
    gate.wait();
  };
}

// Starts the stream until the `count`-th feed is open, or one more: the end of the one before is
// nothing that could be waited for.
void startUntil(AgentDouble& agent, std::size_t count) {
  for (int i = 0; i < 3000 && agent.requests(anyFeed).size() < count; ++i) {
    startChatEvents({agent.port()});
    sleepMs(10);
  }
  EXPECT_GE(agent.requests(anyFeed).size(), count);
}

const std::tuple<const char*, const char*> forwardCases[] = {
    {R"({"method":"m","args":[],"id":7,"sender":"w","x":1})",
     R"({"args":[],"id":7,"method":"m","sender":"w"})"},
    {R"({"method":"m","args":[],"id":{"a":1}})", R"({"args":[],"id":{"a":1},"method":"m"})"},
    {R"({"method":"m","args":[],"id":null})", R"({"args":[],"id":null,"method":"m"})"},
    {R"({"method":"m","args":[],"sender":""})", R"({"args":[],"method":"m","sender":""})"},
    {R"({"method":"m","args":[],"sender":5})", R"({"args":[],"method":"m"})"},
    {R"({"method":"agentDone","args":["r",true,""]})",
     R"({"args":["r",true,""],"method":"agentDone"})"},
};

TEST(ChatEvents, KeepTheirIdAndSender) {
  CapturedOutput output;
  std::string stream(streamHead);
  std::vector<std::string> wanted;
  for (const auto& [said, forwarded] : forwardCases) {
    stream += std::string("data: ") + said + "\n\n: c\n\n";
    wanted.emplace_back(forwarded);
  }
  AgentDouble agent([&stream](ServedConnection& connection) { (void)connection.send(stream); });
  startChatEvents({agent.port()});
  EXPECT_EQ(eventsIn(output.waitFor(wanted.size())), wanted);
}

TEST(ChatEvents, HaveOneStreamPerAgentHoweverManyAskForIt) {
  Gate gate;
  CapturedOutput output;
  AgentDouble agent(saysAndStays(numbered(1), gate));
  AgentDouble other(saysAndStays("", gate));
  runThreads(20, [&agent](int) { startChatEvents({agent.port()}); });
  (void)output.waitFor(1);
  startChatEvents({agent.port()});
  EXPECT_EQ(agent.requests(anyFeed).size(), 1U);
  startChatEvents({agent.port(), 1});  // another on the same port
  const auto requests = agent.waitForRequests(anyFeed, 2);
  EXPECT_EQ(pathOf(requests.at(0)), "/v1/chat/events?after=0");
  EXPECT_EQ(pathOf(requests.at(1)), "/v1/chat/events?after=1");
  startChatEvents({other.port()});
  (void)other.waitForRequests(anyFeed, 1);
  gate.open();
}

// The end of another agent on the same port stops nothing.
TEST(ChatEvents, AreForwardedUntilTheirAgentIsStopped) {
  Gate goOn;
  Gate stopped;
  CapturedOutput output;
  AgentDouble agent([&](ServedConnection& connection) {
    (void)connection.send(std::string(streamHead) + numbered(1));
    goOn.wait();
    (void)connection.send(numbered(2));
    stopped.wait();
    (void)connection.send(numbered(3) + "data: {\"method\":\"unfinished\",\"args\":[]}");
  });
  const AgentId owned{agent.port(), 2};
  startChatEvents(owned);
  (void)output.waitFor(1);
  stopChatEventsOf({agent.port(), 1});
  goOn.open();
  (void)output.waitFor(2);
  stopChatEventsOf(owned);
  stopped.open();
  startChatEvents(owned);
  const std::vector<std::string> events = eventsIn(output.waitFor(5));  // of the second one, too
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(json::parse(events.at(i)).at("id"), i % 2 + 1);
  }
}

TEST(ChatEvents, GoOnAfterTheLastNumber) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) {
    (void)connection.send(std::string(streamHead) + numbered(17) +
                          "data: {\"method\":\"m\",\"args\":[],\"id\":\"x\"}\n\n"
                          "data: {\"method\":\"last\",\"args\":[],\"id\":-5}");
  });
  startChatEvents({agent.port()});
  (void)output.waitFor(3);
  startUntil(agent, 2);
  EXPECT_EQ(pathOf(agent.requests(anyFeed).at(1)), "/v1/chat/events?after=17");
  stopChatEvents();
}

TEST(ChatEvents, AreAskedForAsPointedAt) {
  Gate gate;
  CapturedOutput output;
  AgentDouble agent(saysAndStays("", gate));
  EXPECT_EQ(chatEventsSender(), "");
  pointChatEvents("w 1", 5);  // none is read yet
  EXPECT_EQ(chatEventsSender(), "w 1");
  startChatEvents({agent.port()});
  (void)agent.waitForRequests(anyFeed, 1);
  pointChatEvents("a&b=\xC3\xBC\r\n", 18446744073709551615U);
  (void)agent.waitForRequests(anyFeed, 2);
  pointChatEvents("", 0);
  (void)agent.waitForRequests(anyFeed, 3);
  stopChatEvents();
  pointChatEvents("", 1);  // no agent is known
  agent.adopt();
  pointChatEvents("", 7);
  const std::vector<std::string> requests = agent.waitForRequests(anyFeed, 4);
  EXPECT_EQ(pathOf(requests.at(0)), "/v1/chat/events?after=5&sender=w%201");
  EXPECT_EQ(pathOf(requests.at(1)),
            "/v1/chat/events?after=18446744073709551615&sender=a&b=%C3%BC%0D%0A");
  EXPECT_EQ(pathOf(requests.at(2)), "/v1/chat/events?after=0");
  EXPECT_EQ(pathOf(requests.at(3)), "/v1/chat/events?after=7");
  gate.open();
}

TEST(ChatEvents, AreAskedForAgainAfterWantOfMemory) {
  Gate gate;
  CapturedOutput output;
  AgentDouble agent(saysAndStays("", gate));
  pointChatEvents("", 17);  // no agent is known; a path of a length whose memory can fail
  const long failures = failEachAllocation([&agent] {
    try {
      startChatEvents({agent.port()});
    } catch (const std::bad_alloc&) {
    }
  });
  EXPECT_GT(failures, 0);
  startUntil(agent, 1);
  stopChatEvents();
  gate.open();
}

// Starts, stops and new cursors at random, with streams that end by themselves: no event comes
// twice.
TEST(ChatEvents, SurviveAThousandStartsAndStops) {
  CapturedOutput output;
  std::atomic<int> number = 0;
  std::atomic<std::uint64_t> serial = 1;
  AgentDouble agent([&number](ServedConnection& connection) {
    (void)connection.send(std::string(streamHead) + numbered(++number));
  });
  runThreads(4, [&](int thread) {
    for (int i = 0; i < 250; ++i) {
      startChatEvents({agent.port(), i % 5 == 0 ? serial++ : 0});
      if ((i + thread) % 3 == 0) stopChatEvents();
      if ((i + thread) % 7 == 0) pointChatEvents("w", static_cast<std::uint64_t>(i));
    }
  });
  stopChatEvents();  // nothing comes after this
  std::set<std::string> seen;
  for (const std::string& each : eventsIn(output.finish())) {
    EXPECT_TRUE(seen.insert(each).second) << each;
  }
}

TEST(ChatEvents, LeaveNoHandleBehind) {
  CapturedOutput output;
  AgentDouble agent(sendInPieces(std::string(streamHead), 1000));
  for (std::size_t i = 1; i <= 50; ++i) startUntil(agent, i);
  const std::size_t most = openHandleCount() + handlesOfTheSystem;
  for (std::size_t i = 51; i <= 100; ++i) startUntil(agent, i);
  stopChatEvents();
  // The last streams close theirs when they like.
  for (int i = 0; i < 3000 && openHandleCount() > most; ++i) sleepMs(10);
  EXPECT_LE(openHandleCount(), most);
}

}  // namespace
}  // namespace media::win::chrome_inspect
