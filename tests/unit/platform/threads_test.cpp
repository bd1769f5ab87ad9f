#include "platform/threads.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "platform/clock.h"

namespace media::win::chrome_inspect {
namespace {

TEST(StartThread, RunsTheBodyOnAnotherThread) {
  std::promise<std::thread::id> ran;
  ASSERT_TRUE(startThread([&ran] { ran.set_value(std::this_thread::get_id()); }));
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(StartThread, DestroysTheBodyWhenItHasRun) {
  auto token = std::make_shared<int>(7);
  const std::weak_ptr<int> watched = token;
  std::promise<void> ran;
  ASSERT_TRUE(startThread([token = std::move(token), &ran] {
    EXPECT_EQ(*token, 7);
    ran.set_value();
  }));
  ran.get_future().wait();
  for (int i = 0; i < 5000 && !watched.expired(); ++i) sleepMs(1);
  EXPECT_TRUE(watched.expired());
}

TEST(StartThread, HasRoomForDeepCalls) {
  std::promise<int> ran;
  ASSERT_TRUE(startThread([&ran] {
    volatile char block[1024 * 1024] = {};  // half of what a thread is given
    block[0] = 1;
    ran.set_value(block[0] + block[sizeof block - 1]);
  }));
  EXPECT_EQ(ran.get_future().get(), 1);
}

TEST(StartThread, StartsHundredsOneAfterTheOther) {
  for (int i = 0; i < 500; ++i) {
    auto ran = std::make_shared<std::promise<int>>();
    ASSERT_TRUE(startThread([ran, i] { ran->set_value(i); }));
    EXPECT_EQ(ran->get_future().get(), i);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
