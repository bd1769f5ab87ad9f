#include "common/detached.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

constexpr auto patience = std::chrono::seconds(30);

std::promise<std::string>* reportTo = nullptr;

std::string reportOf(std::function<void()> body) {
  std::promise<std::string> promise;
  std::future<std::string> report = promise.get_future();
  reportTo = &promise;
  setDetachedReporter([](const std::string& text) { reportTo->set_value(text); });
  EXPECT_TRUE(runDetached("worker", std::move(body)));
  return report.wait_for(patience) == std::future_status::ready ? report.get() : "no report";
}

TEST(RunDetached, RunsTheBodyOnAnotherThread) {
  std::promise<std::thread::id> promise;
  auto ran = promise.get_future();
  ASSERT_TRUE(runDetached("worker", [&promise] { promise.set_value(std::this_thread::get_id()); }));
  ASSERT_EQ(ran.wait_for(patience), std::future_status::ready);
  EXPECT_NE(ran.get(), std::this_thread::get_id());
}

TEST(RunDetached, ReportsWhateverIsThrownInUtf8) {
  EXPECT_EQ(reportOf([] { throw std::runtime_error("byte \xFF"); }),
            "worker failed: byte \xEF\xBF\xBD");
  EXPECT_EQ(reportOf([] { throw 5; }), "worker failed: unknown exception");
}

TEST(RunDetached, OutlivesAnExceptionWithoutAReporter) {
  std::promise<void> promise;
  auto ended = promise.get_future();
  // Let go when the thread's body is destroyed, which is after the exception was contained.
  std::shared_ptr<void> notice(nullptr, [&promise](void*) { promise.set_value(); });
  setDetachedReporter(nullptr);
  ASSERT_TRUE(runDetached(
      "worker", [held = std::move(notice)] { throw std::runtime_error("nobody hears"); }));
  EXPECT_EQ(ended.wait_for(patience), std::future_status::ready);
}

}  // namespace
}  // namespace media::win::chrome_inspect
