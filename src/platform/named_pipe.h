#pragma once

#include <string>

#include "platform/byte_stream.h"

// The serving end of a local named pipe, for one client at a time, and a look at somebody else's
// (platform/pipe_client.h has the client's end).
// Pipes are read and written with platform/byte_stream.h.
// Windows side: CreateNamedPipeA and its companions (learn.microsoft.com, namedpipeapi.h). POSIX
// twin: a local stream socket in the abstract name space; it is for tests. The process keeps the
// name of its first instance, whatever later ones are called, so that clients can wait between two.
namespace media::win::chrome_inspect {

// Creates the only instance of the pipe `name`: duplex, of bytes, blocking, with buffers of 1 MiB
// each way and a default time-out of 5 s, for clients of this machine. False when the name is
// taken.
bool createPipeInstance(const char* name, OwnedStream& pipe);

// Blocks until a client is there. False when waiting failed; the instance is then of no use.
bool connectPipeClient(OwnedStream& pipe);

// Blocks until the client has read all that was written, or is gone. POSIX: returns at once; what
// was written reaches the client even after the end of the connection.
void flushPipe(StreamId pipe);

// Ends the connection; what the client has not read is lost. POSIX: see flushPipe.
void disconnectPipe(StreamId pipe);

// Whether the client has closed its end, seen without waiting and without taking what it wrote.
bool isPipeClientGone(StreamId pipe);

// A thread whose blocking calls on a pipe another thread may break off.
struct CallerTraits {
  using Raw = std::intptr_t;
  static Raw none() { return 0; }
  static bool valid(Raw raw) { return raw != 0; }
  static void close(Raw raw);
};
using OwnedCaller = Owned<CallerTraits>;

// The calling thread. Empty when the system makes no handle for it.
OwnedCaller currentCaller();

// Breaks off the call on `pipe` in which `caller` is blocked: it fails. False when there was none;
// the caller may be about to enter it. It must be in no other blocking call. Threads: any.
// Windows side: CancelSynchronousIo. POSIX: the connection is of no use afterwards, and a read that
// was broken off returns `end`.
bool breakOffPipeCall(const OwnedCaller& caller, StreamId pipe);

enum class PipeState { absent, listening, busy, unknown };

// Whether a named pipe exists and, if so, whether its server waits for a client, without becoming
// one (WaitNamedPipeA). Takes a few milliseconds at most. POSIX: always `unknown`.
PipeState probePipe(const std::string& name);

}  // namespace media::win::chrome_inspect
