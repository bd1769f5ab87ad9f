#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long untilFailure = -1;  // negative: none is to fail
thread_local bool lasts = false;
thread_local bool hasFailed = false;

bool mustFail(std::size_t size) {
  if (untilFailure < 0 || size % 16 == 0) return false;
  if (untilFailure > 0) {
    --untilFailure;
    return false;
  }
  hasFailed = true;
  if (!lasts) untilFailure = -1;
  return true;
}

}  // namespace

// The whole test program allocates through these.
void* operator new(std::size_t size) {
  if (mustFail(size)) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace media::win::chrome_inspect {

FailingNew::FailingNew(long number, Failure failure) {
  lasts = failure == Failure::lasting;
  hasFailed = false;
  untilFailure = number;
}
FailingNew::~FailingNew() { untilFailure = -1; }
bool FailingNew::happened() { return hasFailed; }

}  // namespace media::win::chrome_inspect
