#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/byte_stream.h"
#include "platform/sockets.h"

// What tests ask of the system beyond what the product does.
namespace media::win::chrome_inspect {

std::uint32_t ownProcessId();

// Which streams this process has inherited.
std::string inheritedStreams();
// What that is in a child that got its three standard streams and nothing else.
extern const std::string_view inheritedByChild;

// How many handles (descriptors) this process has open.
std::size_t openHandleCount();
// How many more may be open later without a leak of ours: what the system keeps for itself, such as
// its threads.
extern const std::size_t handlesOfTheSystem;

// Whether the thread that makes the answer sleeps, to be asked by others. Windows does not say:
// after 50 ms it is taken to.
std::function<bool()> sleepOfThisThread();

// Sets a variable for this process and for what the system looks up in its name; an empty value
// removes it.
void setEnvironment(const std::string& name, const std::string& value);

// Makes `stream` the process's standard output; the caller goes on owning it. Returns what it was
// before.
StreamId replaceStandardOutput(StreamId stream);
void restoreStandardOutput(StreamId old);

// Lets a thread of the host that serves the inspect pipe run where nothing is.
bool strikeHost();

// Ends the process with a report if it has lost memory, where a sanitizer watches that.
void lookForLostMemory();

// Whether this process is in a job, and its error mode, in words; empty where there is neither.
std::string processState();

// Makes the console of this process, if it has one, its standard input.
void useConsoleInput();

// The port on which a socket listens.
std::uint16_t portOf(const OwnedSocket& listener);
// Whether every send is a packet of its own.
bool sendsAtOnce(const OwnedSocket& socket);
// Ends our direction only.
void finishSending(const OwnedSocket& socket);

}  // namespace media::win::chrome_inspect
