#include <gmock/gmock.h>

#include <cstdio>
#include <string_view>

#include "platform/process_control.h"
#include "support/child_probe.h"
#include "support/test_system.h"

int main(int argc, char** argv) {
  namespace host = media::win::chrome_inspect;
  // The test framework never sees these arguments.
  if (argc > 2 && std::string_view(argv[1]) == "--child-probe") {
    host::playChildProbe({argv, argv + argc});
  }
  host::prepareProcess();  // a write to a closed pipe is an error, no signal, as in the host
  testing::InitGoogleMock(&argc, argv);
  const int result = RUN_ALL_TESTS();
  host::lookForLostMemory();
  std::fflush(nullptr);
  // As the host ends: a thread that nobody waits for may be in a library that exit handlers
  // destroy.
  host::exitProcess(static_cast<unsigned>(result));
}
