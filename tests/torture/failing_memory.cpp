// Memory that runs out: `operator new` throws, and what the program's own C code allocates is null.
// Libraries that are linked dynamically keep what they ask for.
#include <cstdlib>
#include <new>

#include "failure_plan.h"

namespace {

using media::win::chrome_inspect::FailingKind;
using media::win::chrome_inspect::mustFail;

bool isRefused(const char* name, std::size_t size) {
  return mustFail(FailingKind::memory, name, size);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);

void* __wrap_malloc(std::size_t size) {
  return isRefused("malloc", size) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return isRefused("calloc", count * size) ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, std::size_t size) {
  return isRefused("realloc", size) ? nullptr : __real_realloc(memory, size);
}
}

void* operator new(std::size_t size) {
  void* const memory =
      isRefused("operator new", size) ? nullptr : __real_malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
