#pragma once

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

// Makes `stream` the process's standard output; the caller goes on owning it. Returns what it was
// before.
StreamId replaceStandardOutput(StreamId stream);
void restoreStandardOutput(StreamId old);

}  // namespace media::win::chrome_inspect
