#include "plain_frames.h"

// The least that answers a frame: reads it and writes it back as it came. Until its first frame it
// is the empty program that idle memory is compared with.
int main() {
  return media::win::chrome_inspect::answerEachFrame(media::win::chrome_inspect::writePlainly);
}
