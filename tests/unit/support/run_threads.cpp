#include "support/run_threads.h"

#include <memory>
#include <vector>

#include "support/test_thread.h"

namespace media::win::chrome_inspect {

void runThreads(int count, const std::function<void(int number)>& body) {
  std::vector<std::unique_ptr<TestThread>> threads;
  for (int number = 0; number < count; ++number) {
    threads.push_back(std::make_unique<TestThread>([&body, number] { body(number); }));
  }
}

}  // namespace media::win::chrome_inspect
