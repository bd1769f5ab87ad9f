#include "channel/pending_replies.h"

#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t patienceMs = 30'000;
constexpr const char* none = "untouched";

// Takes what is there for `id`.
json taken(const std::string& id) {
  json reply = none;
  const bool isThere = waitForReply(id, 0, reply);
  EXPECT_EQ(isThere, reply != none);
  return reply;
}

TEST(StoreReply, KeepsTheLastAnswerUntilItIsTaken) {
  storeReply("a", 1);
  storeReply("a", 2);
  EXPECT_EQ(taken("a"), 2);
  EXPECT_EQ(taken("a"), none);
}

TEST(StoreReply, DropsWhatNobodyCanWaitFor) {
  for (const char* id : {"", "cht-", "cht-7"}) {
    storeReply(id, 1);
    EXPECT_EQ(taken(id), none) << id;
  }
  for (const char* id : {"cht", "Cht-1"}) {
    storeReply(id, 1);
    EXPECT_EQ(taken(id), 1) << id;
  }
}

TEST(StoreReply, KeepsTheNewest64MiB) {
  EXPECT_EQ(maxUnclaimedBytes, 64U * 1024 * 1024);
  storeReply("a", 1, maxUnclaimedBytes / 2);
  storeReply("b", 2, maxUnclaimedBytes - maxUnclaimedBytes / 2);
  storeReply("b", 3,
             maxUnclaimedBytes - maxUnclaimedBytes / 2);  // what was replaced is not counted
  storeReply("c", 4, 0);
  EXPECT_EQ(taken("a"), 1);
  storeReply("a", 1, maxUnclaimedBytes / 2);  // nor is what was taken
  storeReply("d", 5, 1);                      // one byte too many
  EXPECT_EQ(taken("b"), none);
  EXPECT_EQ(taken("c"), 4);
  EXPECT_EQ(taken("a"), 1);
  storeReply("huge", 6, 2 * maxUnclaimedBytes);
  EXPECT_EQ(taken("d"), none);
  EXPECT_EQ(taken("huge"), 6);  // the newest always stays
}

TEST(StoreReply, KeepsTheNewest256) {
  EXPECT_EQ(maxUnclaimedReplies, 256U);
  for (int i = 0; i < 256; ++i) storeReply(std::to_string(i), i);
  storeReply("0", "again");  // as new as the newest
  storeReply("256", 256);
  EXPECT_EQ(taken("1"), none);
  EXPECT_EQ(taken("2"), 2);
  EXPECT_EQ(taken("0"), "again");
  storeReply("257", 257);  // two were taken: there is room
  EXPECT_EQ(taken("3"), 3);
}

TEST(WaitForReply, EndsAtItsDeadlineWhateverElseArrives) {
  std::atomic<bool> ended = false;
  TestThread foreign([&ended] {
    while (!ended) storeReply("foreign", 1);
  });
  constexpr std::chrono::milliseconds timeout(1100);  // longer than the longest single wait
  const auto before = std::chrono::steady_clock::now();
  json reply;
  EXPECT_FALSE(waitForReply("mine", static_cast<std::uint32_t>(timeout.count()), reply));
  EXPECT_GE(std::chrono::steady_clock::now() - before, timeout);
  ended = true;
}

TEST(WaitForReply, WakesEachWaiterForItsOwn) {
  constexpr int waiterCount = 8;
  constexpr int rounds = 200;
  std::atomic<int> right = 0;
  // One more thread than there are waiters brings the answers.
  runThreads(waiterCount + 1, [&right](int number) {
    for (int round = 0; round < rounds; ++round) {
      if (number == waiterCount) {
        for (int i = waiterCount - 1; i >= 0; --i) storeReply(std::to_string(i), i);
        while (right < waiterCount * (round + 1)) std::this_thread::yield();
      } else {
        json reply;
        EXPECT_TRUE(waitForReply(std::to_string(number), patienceMs, reply));
        EXPECT_EQ(reply, number);
        ++right;
      }
    }
  });
}

TEST(CallExtension, NeedsAnId) {
  CapturedOutput output;
  json reply;
  for (const json& message : {json::object(), json{{"requestId", 5}}, json("requestId")}) {
    EXPECT_FALSE(callExtension(message, reply, 0)) << message;
  }
  EXPECT_TRUE(output.finish().empty());
}

TEST(CallExtension, SendsAndWaitsForTheAnswer) {
  CapturedOutput extension([](const json& message) {
    EXPECT_EQ(taken("cht-1"), none);
    answer(message, {{"ok", message.at("n")}});
    EXPECT_EQ(taken("cht-1"), none);  // not even for a local program with the same id
  });
  for (int n = 0; n < 100; ++n) {
    json reply;
    ASSERT_TRUE(callExtension({{"requestId", "cht-1"}, {"n", n}}, reply, patienceMs));
    EXPECT_EQ(reply.at("ok"), n);
  }
}

TEST(CallExtension, TakesNoAnswerThatCameBeforeItOrTooLate) {
  CapturedOutput output;
  json reply = none;
  storeReply("cht-1", "early");
  EXPECT_FALSE(callExtension({{"requestId", "cht-1"}}, reply, 0));
  storeReply("cht-1", "late");
  EXPECT_FALSE(callExtension({{"requestId", "cht-1"}}, reply, 0));
  storeReply("r", "for a local program");
  EXPECT_FALSE(callExtension({{"requestId", "r"}}, reply, 0));
  EXPECT_EQ(reply, none);
  EXPECT_EQ(taken("r"), "for a local program");
  EXPECT_EQ(output.finish().size(), 3U);
}

TEST(CallExtension, FailsAtOnceWhenTheBrowserIsGone) {
  CapturedOutput output(CapturedOutput::Reader::stalls);
  output.closeReader();
  json reply;
  EXPECT_FALSE(callExtension({{"requestId", "r"}}, reply, patienceMs));
}

}  // namespace
}  // namespace media::win::chrome_inspect
