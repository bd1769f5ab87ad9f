#include "host/panel_work.h"

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <numeric>
#include <vector>

#include "platform/clock.h"
#include "support/run_threads.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t patienceMs = 30'000;

Placed placeOne(PanelWork& work, json message, std::size_t bytes = 1, std::uint32_t timeoutMs = 0) {
  return work.place(message, bytes, timeoutMs);
}

TEST(PanelWork, GivesAMessageToItsReaderWhenNobodyAnswers) {
  PanelWork work;
  const std::uint64_t turn = work.becomeReader();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(work.waitUntilDone(0));
    EXPECT_EQ(placeOne(work, i), Placed::now);
    EXPECT_FALSE(work.waitUntilDone(0));
    json message = "before";
    EXPECT_FALSE(work.next(message));
    EXPECT_EQ(message, "before");
    EXPECT_TRUE(work.isReader(turn));
  }
  EXPECT_TRUE(work.waitUntilDone(0));
}

// Two threads, of which the second wants to read.
class HandOver : public testing::Test {
 protected:
  void answerQuickly() {
    json message;
    ASSERT_EQ(placeOne(work_, 1), Placed::now);
    ASSERT_FALSE(work_.next(message));
  }

  PanelWork work_;
  const std::uint64_t turn_ = work_.becomeReader();
  std::atomic<std::uint64_t> otherTurn_ = 0;
  TestThread other_{[this] { otherTurn_ = work_.becomeReader(); }};
};

TEST_F(HandOver, LeavesReadingToTheOtherWhenAnAnswerTakesItsTime) {
  ASSERT_EQ(placeOne(work_, 1), Placed::now);
  other_.join();
  EXPECT_FALSE(work_.isReader(turn_));
  EXPECT_TRUE(work_.isReader(otherTurn_));
}

TEST_F(HandOver, KeepsReadingThroughQuickAnswers) {
  const std::uint64_t before = tickCountMs();
  while (tickCountMs() - before < 5 * answerPatienceMs) answerQuickly();
  EXPECT_TRUE(work_.isReader(turn_));
  ASSERT_EQ(placeOne(work_, 1), Placed::now);
  other_.join();
}

TEST_F(HandOver, WakesTheOtherAfterAQuietTime) {
  sleepMs(30 * answerPatienceMs);  // it has stopped looking by then
  EXPECT_TRUE(work_.isReader(turn_));
  ASSERT_EQ(placeOne(work_, 1), Placed::now);
  other_.join();
  EXPECT_TRUE(work_.isReader(otherTurn_));
}

TEST(PanelWork, QueuesInOrderWhileOneIsAnswered) {
  PanelWork work;
  work.becomeReader();
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(placeOne(work, i), Placed::queued);
  json message;
  for (int i = 1; i <= 3; ++i) {
    EXPECT_FALSE(work.waitUntilDone(0));
    ASSERT_TRUE(work.next(message));
    EXPECT_EQ(message, i);
  }
  EXPECT_FALSE(work.waitUntilDone(0));  // the last one is still being answered
  EXPECT_FALSE(work.next(message));
  EXPECT_TRUE(work.waitUntilDone(0));
}

TEST(PanelWork, HoldsAsManyMessagesAsItsLimit) {
  EXPECT_EQ(maxQueuedMessages, 4096U);
  PanelWork work;
  work.becomeReader();
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  for (std::size_t i = 0; i < maxQueuedMessages; ++i) ASSERT_EQ(placeOne(work, 1), Placed::queued);
  json refused = {{"kind", "k"}};
  EXPECT_EQ(work.place(refused, 1, 0), Placed::full);
  EXPECT_EQ(refused.dump(), R"({"kind":"k"})");
  json message;
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(work.place(refused, 1, 0), Placed::queued);
  EXPECT_EQ(placeOne(work, 1), Placed::full);
}

TEST(PanelWork, HoldsAsManyBytesAsItsLimit) {
  EXPECT_EQ(maxQueuedBytes, 64U * 1024 * 1024);
  PanelWork work;
  work.becomeReader();
  ASSERT_EQ(placeOne(work, 0, maxQueuedBytes), Placed::now);  // it does not wait
  EXPECT_EQ(placeOne(work, 1, maxQueuedBytes - 1), Placed::queued);
  EXPECT_EQ(placeOne(work, 2, 2), Placed::full);
  EXPECT_EQ(placeOne(work, 2, 1), Placed::queued);
  json message;
  ASSERT_TRUE(work.next(message));  // gives back what it took
  EXPECT_EQ(placeOne(work, 3, maxQueuedBytes), Placed::full);
  EXPECT_EQ(placeOne(work, 3, maxQueuedBytes - 1), Placed::queued);
}

TEST(PanelWork, TakesAnyOneMessageWhenNoneWaits) {
  PanelWork work;
  work.becomeReader();
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  EXPECT_EQ(placeOne(work, 1, maxQueuedBytes + 1), Placed::queued);
  EXPECT_EQ(placeOne(work, 2, 0), Placed::full);
}

TEST(PanelWork, WaitsForRoom) {
  PanelWork work;
  work.becomeReader();
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  ASSERT_EQ(placeOne(work, 1, maxQueuedBytes), Placed::queued);
  const std::uint64_t before = tickCountMs();
  EXPECT_EQ(placeOne(work, 2, 1, 100), Placed::full);
  EXPECT_GE(tickCountMs() - before + 16, 100U);
  TestThread reader([&work] { EXPECT_EQ(placeOne(work, 2, 1, patienceMs), Placed::queued); });
  json message;
  EXPECT_TRUE(work.next(message));
  reader.join();
  EXPECT_TRUE(work.next(message));
  EXPECT_EQ(message, 2);
}

// Two threads as the host has them; some answers take so long that reading is handed over.
class TwoThreads {
 public:
  explicit TwoThreads(int messageCount) : messageCount_(messageCount) {
    runThreads(2, [this](int) {
      while (!ended_) readDuringTurn();
    });
  }

  std::vector<int> answered;  // written by whoever answers

 private:
  void readDuringTurn() {
    const std::uint64_t turn = work_.becomeReader();
    if (ended_) return;
    do {
      json message = nextMessage();
      if (work_.place(message, 1, patienceMs) == Placed::queued) continue;
      // The last one is left unanswered, so that the other thread sees the end too.
      if (message.is_null()) return;
      do {
        answer(message);
      } while (work_.next(message));
    } while (work_.isReader(turn) && !ended_);
  }

  // Null at the end.
  json nextMessage() {
    EXPECT_EQ(++readers_, 1);
    const json message = read_ < messageCount_ ? json(read_++) : json(nullptr);
    if (message.is_null()) ended_ = true;
    --readers_;
    return message;
  }

  void answer(const json& message) {
    EXPECT_EQ(++answerers_, 1);
    if (!message.is_null()) answered.push_back(message);
    if (message == 10 || message == 500) sleepMs(4 * answerPatienceMs);
    --answerers_;
  }

  const int messageCount_;
  PanelWork work_;
  std::atomic<int> readers_ = 0;
  std::atomic<int> answerers_ = 0;
  std::atomic<bool> ended_ = false;
  int read_ = 0;  // belongs to the reader
};

TEST(PanelWork, AnswersAllInOrderOneAtATime) {
  constexpr int messageCount = 3000;
  const TwoThreads threads(messageCount);
  std::vector<int> wanted(messageCount);
  std::iota(wanted.begin(), wanted.end(), 0);
  EXPECT_EQ(threads.answered, wanted);
}

}  // namespace
}  // namespace media::win::chrome_inspect
