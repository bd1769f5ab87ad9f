#include <gtest/gtest.h>

#include "platform/process_control.h"

namespace media::win::chrome_inspect {
namespace {

// Tests run in the state in which the host runs: a write to a closed pipe is an error, no signal.
class ProcessEnvironment : public testing::Environment {
 public:
  void SetUp() override { prepareProcess(); }
};

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new ProcessEnvironment);

}  // namespace
}  // namespace media::win::chrome_inspect
