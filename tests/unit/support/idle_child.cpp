#include "support/idle_child.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "platform/byte_stream.h"
#include "support/child_probe.h"

namespace media::win::chrome_inspect {

OwnedProcess idleChild() {
  OwnedStream readEnd;
  OwnedStream writeEnd;
  OwnedProcess child;
  std::uint32_t systemError = 0;
  EXPECT_TRUE(makePipe(readEnd, writeEnd));
  EXPECT_EQ(spawnHidden(childProbe(L"wait"), L"", writeEnd.get(), child, systemError),
            SpawnResult::ok);
  writeEnd.reset();
  char byte = 0;
  std::size_t got = 0;
  EXPECT_EQ(readSome(readEnd.get(), &byte, 1, got), ReadResult::data);  // it runs
  return child;
}

}  // namespace media::win::chrome_inspect
