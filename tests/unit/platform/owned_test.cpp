#include "platform/owned.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace media::win::chrome_inspect {
namespace {

std::vector<int> closed;

struct CountingTraits {
  using Raw = int;
  static Raw none() { return 0; }
  static bool valid(Raw raw) { return raw > 0; }
  static void close(Raw raw) { closed.push_back(raw); }
};
using Counted = Owned<CountingTraits>;
using Closed = std::vector<int>;

class OwnedTest : public testing::Test {
 protected:
  void SetUp() override { closed.clear(); }
};

TEST_F(OwnedTest, ClosesOnceAtTheEndOfItsLife) {
  {
    const Counted owner(7);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), 7);
  }
  EXPECT_EQ(closed, Closed{7});
}

TEST_F(OwnedTest, ClosesNothingThatIsNotValid) {
  { const Counted none, failed(-1); }
  EXPECT_EQ(closed, Closed{});
}

TEST_F(OwnedTest, AMoveTakesTheResourceAlong) {
  Counted first(7);
  Counted second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what a move leaves is the subject
  EXPECT_EQ(second.get(), 7);
  EXPECT_EQ(closed, Closed{});
}

TEST_F(OwnedTest, AMoveAssignmentClosesWhatWasHeld) {
  Counted first(7);
  Counted second(8);
  second = std::move(first);
  EXPECT_EQ(second.get(), 7);
  EXPECT_EQ(closed, Closed{8});
}

TEST_F(OwnedTest, AMoveOntoItselfKeepsTheResource) {
  Counted owner(7);
  Counted& same = owner;
  owner = std::move(same);
  EXPECT_EQ(owner.get(), 7);
  EXPECT_EQ(closed, Closed{});
}

TEST_F(OwnedTest, ReleaseGivesTheResourceUp) {
  Counted owner(7);
  EXPECT_EQ(owner.release(), 7);
  EXPECT_FALSE(owner);
  owner.reset();
  EXPECT_EQ(closed, Closed{});
}

TEST_F(OwnedTest, ResetClosesWhatItReplaces) {
  Counted owner(7);
  owner.reset(8);
  EXPECT_EQ(closed, Closed{7});
  owner.reset();
  EXPECT_EQ(closed, (Closed{7, 8}));
}

}  // namespace
}  // namespace media::win::chrome_inspect
