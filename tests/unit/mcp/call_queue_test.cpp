#include "mcp/call_queue.h"

#include <map>

#include "mcp/line_output.h"
#include "mcp/tool_reply.h"
#include "support/test_pipe.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

// Collects lines from any thread.
class Lines {
 public:
  void add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    came_.notify_all();
  }
  std::vector<std::string> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    came_.wait_for(lock, std::chrono::seconds(30), [&] { return lines_.size() >= count; });
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable came_;
  std::vector<std::string> lines_;
};

struct QueueCase {
  Lines& lines = leaked<Lines>();
  Replies::Send send = [&lines = lines](const std::string& line) { lines.add(line); };

  ToolCall call(const std::string& id, const std::string& token = "") {
    return {id, "browser_read", json::object(), token, std::make_shared<Replies>(send, false)};
  }
};

TEST(CallQueue, RunsOneCallAfterTheOther) {
  QueueCase c;
  std::atomic<int>& running = leaked<std::atomic<int>>(0);
  CallQueue queue(
      [&running](const ToolCall& call, const OwnedSignal&, JsonDocument&) {
        EXPECT_EQ(++running, 1);
        --running;
        return "done " + call.id;
      },
      c.send);
  std::vector<std::string> wanted;
  for (int i = 0; i < 100; ++i) {
    queue.add(c.call(std::to_string(i)));
    wanted.push_back("done " + std::to_string(i));
  }
  EXPECT_EQ(c.lines.waitFor(100), wanted);
}

TEST(CallQueue, GivesUpWhatIsCancelledWithoutAReply) {
  QueueCase c;
  Gate& runs = leaked<Gate>();
  CallQueue queue(
      [&runs](const ToolCall& call, const OwnedSignal& givenUp, JsonDocument&) {
        if (call.id == "1") {
          runs.open();
          EXPECT_TRUE(waitForSignal(givenUp, 30'000));
        }
        return "done " + call.id;
      },
      c.send, 30'000);
  for (const char* id : {"1", "2", "3"}) queue.add(c.call(id, "5"));
  runs.wait();
  for (const char* id : {"no such", "2", "1"}) queue.cancel(id);
  EXPECT_EQ(c.lines.waitFor(1), std::vector<std::string>{"done 3"});
}

TEST(CallQueue, ReportsTheProgressOfThoseThatAskedForIt) {
  QueueCase c;
  CallQueue queue(
      [&c](const ToolCall& call, const OwnedSignal&, JsonDocument&) {
        if (call.id == "1") c.lines.waitFor(4);
        return "done " + call.id;
      },
      c.send, 10);
  queue.add(c.call("1", "5"));
  queue.add(c.call("2"));
  queue.add(c.call("3", "\"t\""));  // waits for its turn
  std::map<std::string, std::vector<int>> reports;
  for (const std::string& line : c.lines.waitFor(7)) {
    if (line.starts_with("done")) continue;
    const json message = json::parse(line);
    EXPECT_EQ(message.at("method"), "notifications/progress");
    const json& params = message.at("params");
    reports[params.at("progressToken").dump()].push_back(params.at("progress"));
  }
  EXPECT_EQ(reports.size(), 2U);
  for (const auto& [token, progress] : reports) {
    EXPECT_TRUE(std::ranges::is_sorted(progress, std::less_equal<>())) << token;  // it rises
    EXPECT_GE(progress[0], 1) << token;
  }
}

TEST(CallQueue, PassesOverReportsThatCouldNotBeMadeInTime) {
  QueueCase c;
  const Replies::Send slowSend = [&lines = c.lines](const std::string& line) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    lines.add(line);
  };
  CallQueue queue(
      [&c](const ToolCall&, const OwnedSignal&, JsonDocument&) {
        c.lines.waitFor(2);
        return "done";
      },
      slowSend, 10);
  queue.add(c.call("1", "5"));
  const json late = json::parse(c.lines.waitFor(2)[1]);
  EXPECT_GE(late.at("params").at("progress"), 20);
}

TEST(LineOutput, WritesWhatIsSentInOrderAndNotesAnEnd) {
  TestPipe pipe;
  LineOutput output(pipe.writeEnd.get(), 1000, [] { ADD_FAILURE() << "too much"; });
  output.send("a");
  output.send("b");
  output.drain(30'000);
  std::string bytes(4, '\0');
  std::size_t got = 0;
  for (std::size_t done = 0; done < bytes.size(); done += got) {
    ASSERT_EQ(readSome(pipe.readEnd.get(), bytes.data() + done, bytes.size() - done, got),
              ReadResult::data);
  }
  EXPECT_EQ(bytes, "a\nb\n");
  output.send(std::string(999, 'x'));  // the most that may wait
  output.drain(30'000);
  pipe.readEnd.reset();
  output.send("lost");
  output.drain(30'000);  // returns
  output.send(std::string(1001, 'x'));
}

TEST(LineOutput, ReportsAFarSideThatDoesNotRead) {
  static TestPipe& pipe = leaked<TestPipe>();  // the thread writes to it for ever
  static std::atomic<int> overflows = 0;
  LineOutput output(pipe.writeEnd.get(), 1000, [] { ++overflows; });
  for (int i = 0; i < 2000; ++i) output.send(std::string(999, 'x'));
  EXPECT_EQ(overflows, 1);
}

TEST(ToolReply, HasTextAndAResultAlsoAsAValue) {
  EXPECT_EQ(toolReply({R"({"ok":true})", true, false, false}),
            R"({"content":[{"type":"text","text":"{\"ok\":true}"}],)"
            R"("structuredContent":{"ok":true},"isError":false})");
  EXPECT_EQ(toolReply({"no \"tab\""}),
            R"({"content":[{"type":"text","text":"no \"tab\""}],"isError":true})");
}

}  // namespace
}  // namespace media::win::chrome_inspect
