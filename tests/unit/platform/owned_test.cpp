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

TEST(Owned, ClosesOnceWhatIsValidOrReplacedAndNotWhatIsReleasedOrMoved) {
  {
    Counted owner(7);
    const Counted none, failed(-1);
    EXPECT_TRUE(owner);
    EXPECT_FALSE(none || failed);
    owner.reset(8);
    EXPECT_EQ(closed, Closed{7});
    EXPECT_EQ(owner.release(), 8);
    EXPECT_FALSE(owner);
    owner.reset(9);
    Counted moved(std::move(owner));
    EXPECT_FALSE(owner);  // NOLINT(bugprone-use-after-move): what a move leaves is the subject
    Counted& same = moved;
    moved = std::move(same);
    EXPECT_EQ(moved.get(), 9);
    Counted other(10);
    other = std::move(moved);
    EXPECT_EQ(closed, (Closed{7, 10}));
  }
  EXPECT_EQ(closed, (Closed{7, 10, 9}));
}

}  // namespace
}  // namespace media::win::chrome_inspect
