#include "common/bounded.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/gate.h"

namespace media::win::chrome_inspect {
namespace {

TEST(RunBounded, GivesTheResult) {
  EXPECT_EQ(runBounded("test", 30000, [] { return std::string("done"); }), "done");
}

TEST(RunBounded, ThrowsWhatTheWorkThrows) {
  EXPECT_THROW((void)runBounded("test", 30000, []() -> int { throw std::runtime_error("x"); }),
               std::runtime_error);
}

TEST(RunBounded, GivesUpOnWorkThatTakesTooLong) {
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
