#include "agent/feed_pump.h"

#include "agent/agent_end.h"
#include "agent/event_splitter.h"
#include "agent/request_slots.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using Lines = std::vector<std::string>;

// What a pump has done, one line each.
class Record {
 public:
  void add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  Lines lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  Lines waitFor(const std::string& last) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, std::chrono::seconds(30),
                                        [&] { return !lines_.empty() && lines_.back() == last; });
    if (!came) ADD_FAILURE() << last << " did not come";
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Lines lines_;
};

// What the pump's functions share with the tests.
struct Scene {
  Record record;
  Gate held;  // an event "hold" waits for it
  Gate threadEnded;
  // Holds up whoever begins a stream next, before it aborts the older ones.
  std::atomic<bool> holdsBeginner = false;
  Gate beginnerIsHeld;
  Gate beginnerGoesOn;
};

Scene& scene() {
  static Scene& all = leaked<Scene>();
  return all;
}

Record& record() { return scene().record; }

struct AtThreadEnd {
  ~AtThreadEnd() { scene().threadEnded.open(); }
};

void holdBeginner() {
  if (!scene().holdsBeginner.exchange(false)) return;
  scene().beginnerIsHeld.open();
  scene().beginnerGoesOn.wait();
}

void forward(JsonView event) {
  thread_local const AtThreadEnd end;
  const std::string method(event["method"].text());
  if (method == "throw") throw std::runtime_error("x");
  if (method == "hold") {
    record().add("holding");
    scene().held.wait();
  }
  record().add(method);
}

void ended(const AgentResponse& response) {
  record().add("ended " + std::to_string(response.status) + response.error);
}

FeedPump& pump() {
  static FeedPump& pump =
      leaked<FeedPump>(FeedUser{"feed", CancelSlot::events, forward, ended, holdBeginner});
  return pump;
}

const std::string head(streamHead);

std::string event(const std::string& method) {
  return "data: {\"method\":\"" + method + "\",\"args\":[]}\n\n";
}

void readNext(ScriptedServer& server, std::wstring path = L"/feed") {
  pump().read(pump().begin(), server.port(), std::move(path));
}

// Sends `first`, and `then` when the gate is open.
ScriptedServer::Script inTwoParts(const std::string& first, Gate& gate, std::string then = "") {
  return [first = head + first, &gate, then = std::move(then)](ServedConnection& connection) {
    (void)connection.send(first);
    gate.wait();
    (void)connection.send(then);
  };
}

const std::tuple<const char*, std::string, Lines> feedCases[] = {
    {"events and other blocks",
     head + event("a") + ": c\n\n" + event("b"),
     {"a", "b", "ended 200"}},
    {"the last block needs no blank line",
     head + "data: {\"method\":\"a\",\"args\":[]}",
     {"a", "ended 200"}},
    {"broken off",
     "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n" + event("a"),
     {"a", "ended 200agent response truncated"}},
    {"another status", answerText("", "500 No"), {"ended 500"}},
    {"no answer", "", {"ended 0agent request failed"}},
    {"a user that throws", head + event("throw") + event("a"), {"a", "ended 200"}},
};

TEST(FeedPump, ForwardsTheEventsAndReportsTheEndOnce) {
  Lines wanted;
  for (const auto& [name, answer, lines] : feedCases) {
    SCOPED_TRACE(name);
    ScriptedServer server(sendInPieces(answer, 7));
    readNext(server);
    wanted.insert(wanted.end(), lines.begin(), lines.end());
    EXPECT_EQ(record().waitFor(wanted.back()), wanted);
    EXPECT_EQ(server.requests("GET /feed HTTP/1.1\r\n").size(), 1U);  // it is not tried again
    record().add("next");                                             // two cases end alike
    wanted.push_back("next");
  }
}

TEST(FeedPump, LosesABlockWithoutEndAndGoesOn) {
  ScriptedServer server([](ServedConnection& connection) {
    (void)connection.send(streamHead);
    const std::string piece(1 << 20, 'x');
    for (std::size_t sent = 0; sent <= maxEventBlock; sent += piece.size()) {
      (void)connection.send(piece);
    }
    (void)connection.send("\n\n" + event("a"));
  });
  readNext(server);
  EXPECT_EQ(record().waitFor("ended 200"), (Lines{"a", "ended 200"}));
}

TEST(FeedPump, ForwardsNothingOfAStreamThatWasReplaced) {
  Gate replaced;
  ScriptedServer server(inTwoParts(
      event("first"), replaced, event("late") + "data: {\"method\":\"unfinished\",\"args\":[]}"));
  readNext(server);
  (void)record().waitFor("first");
  const std::uint64_t second = pump().begin();
  const std::uint64_t third = pump().begin();
  replaced.open();
  ScriptedServer other(sendInPieces(head + event("third"), 1000));
  pump().read(second, other.port(), L"/second");
  pump().read(third, other.port(), L"/third");
  EXPECT_EQ(record().waitFor("ended 200"), (Lines{"first", "third", "ended 200"}));
  EXPECT_TRUE(other.requests("GET /second").empty());
}

TEST(FeedPump, BeginsNoNextStreamWhileAnEventIsForwarded) {
  Gate begun;
  ScriptedServer server(inTwoParts(event("hold"), begun));
  readNext(server);
  (void)record().waitFor("holding");
  TestThread next([] {
    (void)pump().begin();
    record().add("begun");
  });
  scene().held.open();
  EXPECT_EQ(record().waitFor("begun"), (Lines{"holding", "hold", "begun"}));
  begun.open();
}

TEST(FeedPump, AbortsNoStreamThatBeganMeanwhile) {
  Gate aborted;
  ScriptedServer server(inTwoParts(event("a"), aborted, event("b")));
  scene().holdsBeginner = true;
  TestThread older([] { (void)pump().begin(); });
  scene().beginnerIsHeld.wait();
  readNext(server);
  (void)record().waitFor("a");
  scene().beginnerGoesOn.open();
  older.join();
  aborted.open();
  EXPECT_EQ(record().waitFor("ended 200"), (Lines{"a", "b", "ended 200"}));
}

TEST(FeedPump, SaysNothingMoreOnceTheHostEnds) {
  Gate ended;
  ScriptedServer server(inTwoParts(event("hold") + event("late"), ended));
  readNext(server);
  (void)record().waitFor("holding");
  cancelAllAgentRequests();  // does not wait for the event that is being forwarded
  scene().held.open();
  ended.open();
  scene().threadEnded.wait();
  EXPECT_EQ(record().lines(), (Lines{"holding", "hold"}));
}

TEST(FeedPump, KeepsTheStreamWhenTheChangeIsRefused) {
  Gate refused;
  ScriptedServer server(inTwoParts(event("a"), refused, event("b")));
  readNext(server);
  (void)record().waitFor("a");
  EXPECT_EQ(pump().begin([] { return false; }), 0U);
  refused.open();
  EXPECT_EQ(record().waitFor("ended 200"), (Lines{"a", "b", "ended 200"}));
}

}  // namespace
}  // namespace media::win::chrome_inspect
