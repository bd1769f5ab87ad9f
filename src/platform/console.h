#pragma once

#include <string_view>

#include "platform/byte_stream.h"

// For the commands that a person types; the host itself writes frames and nothing else.
namespace media::win::chrome_inspect {

StreamId standardError();

// Whether a person sits at the other end of the stream: a console window, or a terminal.
bool isConsole(StreamId stream);

// Whether this process has a console for itself, which closes with it: somebody double-clicked the
// program. POSIX: never.
bool isAloneOnConsole();

// Waits until a person presses a key on the console that is standard input. POSIX: returns at once.
void waitForKey();

// Writes UTF-8 text with line feeds as a person is to read it: a console shows it in any language,
// a file or pipe gets the bytes as they are. A failed write loses the rest.
void writeText(StreamId stream, std::string_view text);

}  // namespace media::win::chrome_inspect
