#include "host/inspect_pipe.h"

#include "host/host_running.h"
#include "platform/named_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* pipeName = R"(\\.\pipe\morva-unit-inspect)";

TEST(InspectPipeServer, ServesNobodyOnceTheHostEnds) {
  hostRunning = false;
  runInspectPipeServer({.name = pipeName});  // returns
  OwnedStream pipe;
  EXPECT_TRUE(createPipeInstance(pipeName, pipe));
}

}  // namespace
}  // namespace media::win::chrome_inspect
