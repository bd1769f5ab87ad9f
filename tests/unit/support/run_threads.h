#pragma once

#include <functional>

namespace media::win::chrome_inspect {

// Runs `body` on `count` threads at the same time, each with its number, and waits for all of them.
void runThreads(int count, const std::function<void(int number)>& body);

}  // namespace media::win::chrome_inspect
