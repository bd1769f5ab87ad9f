#include "text/large_blocks.h"

#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

OwnedBlock blockOf(std::size_t size) {
  OwnedBlock block(takeBlock(size));
  std::fill_n(block.get(), size, 'x');
  return block;
}

// Whether a block that was given back comes again for `next` bytes.
bool comesAgain(std::size_t size, std::size_t next) {
  const char* first = nullptr;
  {
    const OwnedBlock block = blockOf(size);
    first = block.get();
  }
  const std::vector<char> inBetween(size);  // takes the place of one that the system has back
  return blockOf(next).get() == first;
}

TEST(LargeBlocks, ComeAgainForWhatFits) {
  EXPECT_EQ(comesAgain(maxKeptBlock, maxKeptBlock), maxKeptBlocks > 0);
  EXPECT_EQ(comesAgain(maxKeptBlock, minKeptBlock), maxKeptBlocks > 0);
}

TEST(LargeBlocks, GiveWayToLargerOnes) {
  std::vector<OwnedBlock> blocks;
  for (const std::size_t size : {minKeptBlock, maxKeptBlock}) {
    for (std::size_t i = 0; i <= maxKeptBlocks; ++i) blocks.push_back(blockOf(size));
    blocks.clear();
  }
  EXPECT_EQ(comesAgain(maxKeptBlock, maxKeptBlock), maxKeptBlocks > 0);
}

TEST(LargeBlocks, AreEachOnesOwnAmongThreads) {
  runThreads(4, [](int number) {
    for (int i = 0; i < 2000; ++i) {
      const auto mark = static_cast<char>(number);
      const OwnedBlock block(takeBlock(minKeptBlock));
      std::fill_n(block.get(), 64, mark);
      ASSERT_EQ(std::count(block.get(), block.get() + 64, mark), 64);
    }
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
