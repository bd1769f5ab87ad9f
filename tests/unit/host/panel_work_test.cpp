#include "host/panel_work.h"

#include <numeric>

#include "support/json_replies.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Check = ReaderCheck::Result;

Placed placeOne(PanelWork& work, const json& body, std::size_t bytes = 1) {
  PanelMessage message{documentOf(body), ""};
  return work.place(message, bytes);
}

Placed refuseOne(PanelWork& work, std::size_t bytes = 2) {
  PanelMessage message{{}, "{}"};
  return work.place(message, bytes);
}

TEST(ReaderCheck, FindsTheReaderHeldUpByOneAnswerSeenTwice) {
  ReaderCheck check;
  EXPECT_EQ(check.look(true, 1), Check::fine);
  EXPECT_EQ(check.look(true, 2), Check::fine);   // another answer
  EXPECT_EQ(check.look(false, 2), Check::fine);  // none
  EXPECT_EQ(check.look(true, 3), Check::fine);
  EXPECT_EQ(check.look(true, 3), Check::heldUp);
}

TEST(ReaderCheck, CallsTwentyLooksWithoutAnAnswerQuiet) {
  ReaderCheck check;
  EXPECT_EQ(check.look(false, 1), Check::fine);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 19; ++i) ASSERT_EQ(check.look(false, 1), Check::fine) << i;
    EXPECT_EQ(check.look(false, 1), Check::quiet);
  }
  for (int i = 0; i < 19; ++i) ASSERT_EQ(check.look(false, 1), Check::fine) << i;
  EXPECT_EQ(check.look(false, 2), Check::fine);  // counted anew
  EXPECT_EQ(check.look(false, 2), Check::fine);
}

TEST(PanelWork, LetsItsReaderAnswerWhenNobodyDoes) {
  PanelWork work;
  const std::uint64_t number = work.becomeReader();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(work.waitUntilDone(0));
    EXPECT_EQ(placeOne(work, i), Placed::now);
    EXPECT_FALSE(work.waitUntilDone(0));
    PanelMessage message{documentOf("before"), ""};
    EXPECT_FALSE(work.next(message));
    EXPECT_EQ(message.body.root().toValue(), "before");
    EXPECT_TRUE(work.isReader(number));
  }
  EXPECT_TRUE(work.waitUntilDone(0));
}

// A second thread takes over reading, before and after it has gone to sleep.
TEST(PanelWork, LeavesReadingToTheOtherThreadWhenAnAnswerTakesItsTime) {
  EXPECT_EQ(answerPatienceMs, 50U);
  for (const bool asleep : {false, true}) {
    PanelWork work(1);
    const std::uint64_t number = work.becomeReader();
    std::atomic<std::uint64_t> otherNumber = 0;
    TestThread other([&] { otherNumber = work.becomeReader(); });
    while (asleep && !work.otherSleeps()) std::this_thread::yield();
    EXPECT_TRUE(work.isReader(number));
    ASSERT_EQ(placeOne(work, 1), Placed::now);
    other.join();
    EXPECT_FALSE(work.isReader(number));
    EXPECT_TRUE(work.isReader(otherNumber));
    EXPECT_FALSE(work.otherSleeps());
  }
}

TEST(PanelWork, QueuesInOrderWhileOneIsAnswered) {
  PanelWork work;
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(placeOne(work, i), Placed::queued);
  PanelMessage message;
  for (int i = 1; i <= 3; ++i) {
    EXPECT_FALSE(work.waitUntilDone(0));
    ASSERT_TRUE(work.next(message));
    EXPECT_EQ(message.body.root().toValue(), i);
  }
  EXPECT_FALSE(work.waitUntilDone(0));  // the last one is still being answered
  EXPECT_FALSE(work.next(message));
  EXPECT_TRUE(work.waitUntilDone(0));
}

TEST(PanelWork, HoldsAsManyMessagesAsItsLimit) {
  EXPECT_EQ(maxQueuedMessages, 4096U);
  PanelWork work;
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  for (std::size_t i = 0; i < maxQueuedMessages; ++i) ASSERT_EQ(placeOne(work, 1), Placed::queued);
  PanelMessage refused{documentOf({{"kind", "k"}}), ""};
  EXPECT_EQ(work.place(refused, 1), Placed::full);
  EXPECT_EQ(refused.body.root().compactText(), R"({"kind":"k"})");
  PanelMessage message;
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(work.place(refused, 1), Placed::queued);
  EXPECT_EQ(placeOne(work, 1), Placed::full);
}

TEST(PanelWork, HoldsAsManyBytesAsItsLimitOrOneMessage) {
  EXPECT_EQ(maxQueuedBytes, 64U * 1024 * 1024);
  PanelWork work;
  PanelMessage message;
  ASSERT_EQ(placeOne(work, 0, maxQueuedBytes), Placed::now);  // does not wait, so is not counted
  EXPECT_EQ(placeOne(work, 1, maxQueuedBytes - 1), Placed::queued);
  EXPECT_EQ(placeOne(work, 2, 2), Placed::full);
  EXPECT_EQ(placeOne(work, 2, 1), Placed::queued);
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(placeOne(work, 3, maxQueuedBytes), Placed::full);
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(placeOne(work, 4, maxQueuedBytes + 1), Placed::queued);
  EXPECT_EQ(placeOne(work, 5, 0), Placed::full);
}

// They take no room from messages, and messages none from them.
TEST(PanelWork, HoldsAsManyRefusalsAsItsLimit) {
  EXPECT_EQ(maxQueuedRefusals, 262'144U);
  EXPECT_EQ(maxRefusalBytes, 64U * 1024 * 1024);
  PanelWork work;
  ASSERT_EQ(placeOne(work, 0), Placed::now);
  ASSERT_EQ(placeOne(work, 1, maxQueuedBytes), Placed::queued);
  for (std::size_t i = 0; i < maxQueuedRefusals; ++i) ASSERT_EQ(refuseOne(work), Placed::queued);
  EXPECT_EQ(refuseOne(work), Placed::full);
  PanelMessage message;
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(message.body.root().toValue(), 1);
  EXPECT_EQ(refuseOne(work), Placed::full);
  EXPECT_EQ(placeOne(work, 2, maxQueuedBytes), Placed::queued);
  ASSERT_TRUE(work.next(message));
  EXPECT_EQ(message.refusal, "{}");
  EXPECT_EQ(refuseOne(work, maxRefusalBytes - 2 * (maxQueuedRefusals - 1) + 1), Placed::full);
  EXPECT_EQ(refuseOne(work, maxRefusalBytes - 2 * (maxQueuedRefusals - 1)), Placed::queued);
}

// Two threads as the host has them; some answers last until the other thread has taken over.
class TwoThreads {
 public:
  explicit TwoThreads(int messageCount) : messageCount_(messageCount) {
    runThreads(2, [this](int) {
      while (!ended_) readAndAnswer();
    });
  }

  std::vector<int> answered;  // written by whoever answers

 private:
  void readAndAnswer() {
    const std::uint64_t number = work_.becomeReader();
    if (ended_) return;
    do {
      PanelMessage message{documentOf(nextMessage()), ""};
      if (work_.place(message, 1) == Placed::queued) continue;
      // The last one is left unanswered, so that the other thread sees the end too.
      if (message.body.root().isNull()) return;
      do {
        answer(message.body.root().toValue(), number);
      } while (work_.next(message));
    } while (work_.isReader(number) && !ended_);
  }

  // Null at the end.
  json nextMessage() {
    EXPECT_EQ(++readers_, 1);
    json message = read_ < messageCount_ ? json(read_++) : json(nullptr);
    if (message.is_null()) ended_ = true;
    --readers_;
    return message;
  }

  void answer(const json& message, std::uint64_t number) {
    EXPECT_EQ(++answerers_, 1);
    if (!message.is_null()) answered.push_back(message);
    while ((message == 10 || message == 500) && work_.isReader(number)) std::this_thread::yield();
    --answerers_;
  }

  const int messageCount_;
  PanelWork work_{5};
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
