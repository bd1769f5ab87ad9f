// What the stand-in for the command-line program asks of the operating system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace viewer_cli {

using Socket = std::uintptr_t;

// Once, before anything else: sockets usable, standard output as bytes.
bool prepareSystem();

// A listener on 127.0.0.1; nothing when the port is taken.
std::optional<Socket> listenOn(std::uint16_t port);

// Blocks for the next connection.
std::optional<Socket> acceptFrom(Socket listener);

// Blocks until there is something; 0 when the far side has closed or the connection is broken.
std::size_t receive(Socket socket, char* buffer, std::size_t capacity);

// Blocks until all has gone; false when nobody takes it any more.
bool sendAll(Socket socket, std::string_view data);

void closeSocket(Socket socket);

// The thread is detached; false when the system has none.
bool startThread(std::function<void()> body);

std::uint64_t ownProcessId();

// The current directory, in UTF-8.
std::string workingFolder();

// What follows the program's own name on the command line, with the blanks as they are where the
// system keeps them, else one before each argument.
std::string commandTail(int argc, char** argv);

// What standard input, output and error are, in the words of the system.
std::vector<std::string> standardStreams();

// Every handle or descriptor that the process was given by the one that started it.
std::vector<std::string> inheritedHandles();

// An environment variable in UTF-8; empty when there is none.
std::string environmentText(const char* name);

bool appendToFile(const std::string& pathUtf8, std::string_view text);

}  // namespace viewer_cli
