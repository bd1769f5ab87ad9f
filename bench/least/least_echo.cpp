#include <string>

#include "plain_frames.h"
#include "platform/process_control.h"

// The least that answers a frame: reads it and writes it back as it came. Until its first frame it
// is the empty program that idle memory is compared with.
int main() {
  using namespace media::win::chrome_inspect;
  prepareProcess();
  std::string frame;
  while (readPlainFrame(frame)) {
    if (!writePlainly(frame)) return 1;
  }
  return 0;
}
