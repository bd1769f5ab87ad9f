#include "platform/owned.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Closed = std::vector<int>;
Closed closed;

struct CountingTraits {
  using Raw = int;
  static Raw none() { return 0; }
  static bool valid(Raw raw) { return raw > 0; }
  static void close(Raw raw) { closed.push_back(raw); }
};
using Counted = Owned<CountingTraits>;

TEST(Owned, ClosesWhatIsValidOnceAndWhatIsReplacedButNotWhatIsReleased) {
  {
    Counted owner(7);
    const Counted none, failed(-1);
    EXPECT_TRUE(owner);
    EXPECT_FALSE(none || failed);
    EXPECT_EQ(owner.get(), 7);
    owner.reset(8);
    EXPECT_EQ(closed, Closed{7});
    owner.reset();
    EXPECT_EQ(closed, (Closed{7, 8}));
    owner.reset(9);
    EXPECT_EQ(owner.release(), 9);
    EXPECT_FALSE(owner);
    owner.reset(10);
  }
  EXPECT_EQ(closed, (Closed{7, 8, 10}));
}

TEST(Owned, AMoveTakesTheResourceAlongAndClosesWhatWasHeld) {
  Counted first(7);
  Counted second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what a move leaves is the subject
  EXPECT_EQ(second.get(), 7);
  Counted third(8);
  third = std::move(second);
  Counted& same = third;
  third = std::move(same);
  EXPECT_EQ(third.get(), 7);
  EXPECT_EQ(closed, Closed{8});
}

}  // namespace
}  // namespace media::win::chrome_inspect
