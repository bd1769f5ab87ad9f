#include "platform/threads.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

TEST(StartThread, RunsTheBodyOnAnotherThreadAndThenDestroysIt) {
  std::promise<std::thread::id> ran;
  std::promise<void> destroyed;
  std::shared_ptr<void> held(nullptr, [&destroyed](void*) { destroyed.set_value(); });
  ASSERT_TRUE(
      startThread([&ran, held = std::move(held)] { ran.set_value(std::this_thread::get_id()); }));
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
  destroyed.get_future().wait();
}

TEST(StartThread, HasRoomForDeepCalls) {
  std::promise<int> ran;
  ASSERT_TRUE(startThread([&ran] {
    volatile char block[1024 * 1024] = {};  // half of a thread's stack
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
