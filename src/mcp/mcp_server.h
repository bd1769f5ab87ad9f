#pragma once

namespace media::win::chrome_inspect {

// Serves one client of the Model Context Protocol on standard input and output until the input
// ends; calls that still wait then are given up. What the client must know goes to it, problems of
// the program itself to standard error. Returns the exit code; threads of it may still run.
int runMcpServer();

}  // namespace media::win::chrome_inspect
