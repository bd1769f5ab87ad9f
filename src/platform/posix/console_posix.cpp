#include "platform/console.h"

#include <unistd.h>

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

StreamId standardError() { return STDERR_FILENO; }

bool isConsole(StreamId stream) { return isatty(static_cast<int>(stream)) == 1; }

bool isAloneOnConsole() { return false; }

void waitForKey() {}

void writeText(StreamId stream, std::string_view text) {
  for (std::size_t done = 0, written = 0; done < text.size(); done += written) {
    if (!writeSome(stream, text.data() + done, text.size() - done, written)) return;
  }
}

}  // namespace media::win::chrome_inspect
