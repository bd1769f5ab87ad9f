#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long allocationsLeft = -1;  // negative: none is to fail

bool mustFail(std::size_t size) {
  return allocationsLeft >= 0 && size % 16 != 0 && allocationsLeft-- == 0;
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

FailingNew::FailingNew(long number) { allocationsLeft = number; }
FailingNew::~FailingNew() { allocationsLeft = -1; }
bool FailingNew::happened() { return allocationsLeft < 0; }

}  // namespace media::win::chrome_inspect
