#include "channel/pending_replies.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "support/answering_extension.h"
#include "support/captured_output.h"
#include "support/run_threads.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using SteadyClock = std::chrono::steady_clock;

constexpr std::uint32_t patienceMs = 30'000;

TEST(WaitForReply, TakesWhatWasStored) {
  storeReply("a", 1);
  storeReply("a", 2);
  json reply;
  EXPECT_TRUE(waitForReply("a", 0, reply));
  EXPECT_EQ(reply, 2);
  reply = "before";
  EXPECT_FALSE(waitForReply("a", 0, reply));
  EXPECT_EQ(reply, "before");
}

TEST(StoreReply, DropsOneWithoutAnId) {
  storeReply("", 1);
  json reply;
  EXPECT_FALSE(waitForReply("", 0, reply));
}

TEST(StoreReply, DropsALateAnswerToARequestOfOurOwn) {
  storeReply("cht-7", 1);
  storeReply("cht", 2);  // does not begin that way
  json reply;
  EXPECT_FALSE(waitForReply("cht-7", 0, reply));
  EXPECT_TRUE(waitForReply("cht", 0, reply));
}

TEST(StoreReply, KeepsTheNewest64MiB) {
  EXPECT_EQ(maxUnclaimedBytes, 64U * 1024 * 1024);
  json reply;
  storeReply("a", 1, maxUnclaimedBytes / 2);
  storeReply("b", 2, maxUnclaimedBytes - maxUnclaimedBytes / 2);
  storeReply("b", 3, maxUnclaimedBytes - maxUnclaimedBytes / 2);  // counts once
  storeReply("c", 4, 0);
  EXPECT_TRUE(waitForReply("a", 0, reply));
  storeReply("a", 1, maxUnclaimedBytes / 2);
  storeReply("d", 5, 1);  // one byte too many
  EXPECT_FALSE(waitForReply("b", 0, reply));
  EXPECT_TRUE(waitForReply("a", 0, reply));
  storeReply("huge", 6, 2 * maxUnclaimedBytes);
  EXPECT_FALSE(waitForReply("d", 0, reply));
  EXPECT_TRUE(waitForReply("huge", 0, reply));  // the newest always stays
}

TEST(StoreReply, KeepsTheNewest256) {
  EXPECT_EQ(maxUnclaimedReplies, 256U);
  for (int i = 0; i < 256; ++i) storeReply(std::to_string(i), i);
  storeReply("0", "again");  // as new as the newest
  json reply;
  storeReply("256", 256);
  EXPECT_FALSE(waitForReply("1", 0, reply));
  EXPECT_TRUE(waitForReply("2", 0, reply));
  EXPECT_TRUE(waitForReply("0", 0, reply));
  EXPECT_EQ(reply, "again");
  storeReply("257", 257);  // two were taken: there is room
  EXPECT_TRUE(waitForReply("3", 0, reply));
}

// Stores an answer to something else every 10 ms for as long as it lives.
class ForeignAnswers {
 public:
  ~ForeignAnswers() { stop_ = true; }

 private:
  std::atomic<bool> stop_ = false;
  TestThread thread_{[this] {
    while (!stop_) {
      storeReply("foreign", 1);
      wakeReplyWaiters();
      sleepMs(10);
    }
  }};
};

TEST(WaitForReply, EndsAtItsDeadlineWhateverElseArrives) {
  const ForeignAnswers foreign;
  constexpr std::uint32_t timeoutMs = 1500;
  const auto before = SteadyClock::now();
  json reply;
  EXPECT_FALSE(waitForReply("mine", timeoutMs, reply));
  const auto spent = SteadyClock::now() - before;
  EXPECT_GE(spent, std::chrono::milliseconds(timeoutMs));
  EXPECT_LT(spent, std::chrono::milliseconds(timeoutMs) + std::chrono::seconds(1));
}

TEST(WaitForReply, WakesForItsAnswerHoweverTheyMeet) {
  constexpr int rounds = 10'000;
  std::atomic<int> asked = -1;
  TestThread extension([&asked] {
    std::minstd_rand random(1);
    for (int i = 0; i < rounds; ++i) {
      while (asked.load() < i) std::this_thread::yield();
      for (unsigned spin = random() % 200; spin > 0; --spin) asked.load();
      storeReply(std::to_string(i), i);
    }
  });
  std::minstd_rand random(2);
  int answered = 0;
  for (int i = 0; i < rounds; ++i) {
    asked = i;
    for (unsigned spin = random() % 200; spin > 0; --spin) asked.load();
    json reply;
    if (waitForReply(std::to_string(i), patienceMs, reply) && reply == i) ++answered;
  }
  extension.join();
  EXPECT_EQ(answered, rounds);
}

TEST(WaitForReply, GivesEachWaiterItsOwn) {
  constexpr int waiterCount = 8;
  std::atomic<int> right = 0;
  // One more thread than there are waiters brings the answers.
  runThreads(waiterCount + 1, [&right](int number) {
    if (number == waiterCount) {
      for (int i = waiterCount - 1; i >= 0; --i) storeReply(std::to_string(i), i);
      return;
    }
    json reply;
    if (waitForReply(std::to_string(number), patienceMs, reply) && reply == number) ++right;
  });
  EXPECT_EQ(right, waiterCount);
}

// Memory that answers nobody asked for may take: the newest, 64 MiB of frames at most.
TEST(StoreReply, KeepsNoMoreThan64MibOfFrames) {
  EXPECT_EQ(maxUnclaimedBytes, 64U << 20);
  constexpr std::size_t largest = 16 << 20;
  for (int i = 0; i < 5; ++i) storeReply(std::to_string(i), i, largest);
  json reply;
  EXPECT_FALSE(waitForReply("0", 0, reply));
  for (int i = 1; i < 5; ++i) {
    EXPECT_TRUE(waitForReply(std::to_string(i), 0, reply));
    EXPECT_EQ(reply, i);
  }
  storeReply("alone", 1, 2 * maxUnclaimedBytes);  // the newest always stays
  EXPECT_TRUE(waitForReply("alone", 0, reply));
  storeReply("small", 1, 1);  // what was taken counts no more
  storeReply("a", 1, largest);
  storeReply("a", 2, largest);  // nor what was replaced
  for (int i = 0; i < 3; ++i) storeReply(std::to_string(i), i, largest - 1);
  EXPECT_TRUE(waitForReply("small", 0, reply));
  EXPECT_TRUE(waitForReply("a", 0, reply));
  EXPECT_EQ(reply, 2);
}

TEST(StoreReply, KeepsTheNewestOfTenThousand) {
  for (int i = 0; i < 10'000; ++i) storeReply(std::to_string(i), std::string(1000, 'x'), 1000);
  json reply;
  int left = 0;
  for (int i = 0; i < 10'000; ++i) left += waitForReply(std::to_string(i), 0, reply) ? 1 : 0;
  EXPECT_EQ(left, 256);
}

TEST(StoreReply, DropsAnAnswerToOurOwnThatNobodyWaitsFor) {
  storeReply("cht-1", 1);
  storeReply("cht-", 1);
  json reply;
  EXPECT_FALSE(waitForReply("cht-1", 0, reply));
  EXPECT_FALSE(waitForReply("cht-", 0, reply));
  storeReply("cht", 2);
  storeReply("Cht-1", 3);
  EXPECT_TRUE(waitForReply("cht", 0, reply));
  EXPECT_TRUE(waitForReply("Cht-1", 0, reply));
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
  AnsweringExtension extension([](const json& message) {
    answer(message, {{"ok", message.at("n")}});
  });
  for (int n = 0; n < 100; ++n) {
    json reply;
    ASSERT_TRUE(callExtension({{"requestId", "cht-1"}, {"n", n}}, reply, patienceMs));
    EXPECT_EQ(reply.at("ok"), n);
  }
}

TEST(CallExtension, TakesNoAnswerThatCameBeforeItOrTooLate) {
  CapturedOutput output;
  json reply = "before";
  storeReply("cht-1", "early");
  EXPECT_FALSE(callExtension({{"requestId", "cht-1"}}, reply, 20));
  storeReply("cht-1", "late");
  EXPECT_FALSE(callExtension({{"requestId", "cht-1"}}, reply, 20));
  storeReply("r", "for a local program");
  EXPECT_FALSE(callExtension({{"requestId", "r"}}, reply, 20));
  EXPECT_EQ(reply, "before");
  EXPECT_TRUE(waitForReply("r", 0, reply));
  EXPECT_EQ(output.finish().size(), 3U);
}

TEST(CallExtension, LosesNoAnswerToALocalProgramWithTheSameId) {
  AnsweringExtension extension([](const json& message) {
    json stolen;
    EXPECT_FALSE(waitForReply("cht-1", 0, stolen));
    answer(message, {{"ok", true}});
    EXPECT_FALSE(waitForReply("cht-1", 0, stolen));
  });
  TestThread program([] {
    json stolen;
    EXPECT_FALSE(waitForReply("cht-1", 500, stolen));
  });
  for (int i = 0; i < 100; ++i) {
    json reply;
    ASSERT_TRUE(callExtension({{"requestId", "cht-1"}}, reply, patienceMs));
  }
}

TEST(CallExtension, FailsAtOnceWhenTheBrowserIsGone) {
  CapturedOutput output(CapturedOutput::Reader::stalls);
  output.closeReader();
  json reply;
  EXPECT_FALSE(callExtension({{"requestId", "r"}}, reply, patienceMs));
}

}  // namespace
}  // namespace media::win::chrome_inspect
