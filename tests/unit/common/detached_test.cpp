#include "common/detached.h"

#include "common/bounded.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string reported;
Gate* hasReported = nullptr;

// What the failing `body` is reported as.
template <class Body>
std::string reportOf(const Body& body) {
  Gate gate;
  hasReported = &gate;
  setDetachedReporter([](const std::string& text) {
    reported = text;
    hasReported->open();
  });
  EXPECT_TRUE(runDetached("worker", body));
  gate.wait();
  return reported;
}

TEST(RunDetached, ReportsWhateverIsThrownInUtf8) {
  EXPECT_EQ(reportOf([] { throw std::runtime_error("byte \xFF"); }),
            "worker failed: byte \xEF\xBF\xBD");
  EXPECT_EQ(reportOf([] { throw 5; }), "worker failed: unknown exception");
}

TEST(RunDetached, OutlivesAnExceptionWithoutAReporter) {
  Gate gate;
  // Let go when the thread's body is destroyed, which is after the exception was contained.
  std::shared_ptr<void> notice(nullptr, [&gate](void*) { gate.open(); });
  setDetachedReporter(nullptr);
  ASSERT_TRUE(runDetached(
      "worker", [held = std::move(notice)] { throw std::runtime_error("nobody hears"); }));
  gate.wait();
}

TEST(RunBounded, ReturnsOrThrowsWhatTheWorkDoesOnAnotherThread) {
  EXPECT_NE(runBounded("test", 30000, [] { return std::this_thread::get_id(); }),
            std::this_thread::get_id());
  EXPECT_EQ(runBounded("test", 30000, [] { return std::string("done"); }), "done");
  EXPECT_THROW((void)runBounded("test", 30000, []() -> int { throw std::runtime_error("x"); }),
               std::runtime_error);
}

TEST(RunBounded, ReturnsNothingWhenTheWorkTakesTooLong) {
  const auto gate = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  const auto result = runBounded("test", 20, [gate, ended, text = std::string(100, 'x')] {
    gate->wait();
    ended->open();
    return text;
  });
  EXPECT_FALSE(result.has_value());
  gate->open();
  ended->wait();  // the work ran on, with what it owns
}

}  // namespace
}  // namespace media::win::chrome_inspect
