#include "text/large_blocks.h"

#include <array>
#include <atomic>
#include <chrono>
#include <new>
#include <thread>

namespace media::win::chrome_inspect {

const std::size_t maxKeptBlocks = MORVA_KEPT_BLOCKS;

namespace {

// Stands in front of each block.
struct alignas(std::max_align_t) Head {
  std::size_t size;  // of what follows
};

// What is given up for want of a block is a whole message, and other threads give theirs back.
constexpr int mostTries = 3;
constexpr auto pause = std::chrono::milliseconds(10);

// Without a lock: whoever looks at what is in a place takes it.
using Place = std::atomic<Head*>;
std::array<Place, MORVA_KEPT_BLOCKS> places;

void freeBlock(Head* head) { ::operator delete(head); }

// Puts a block into a place that is free; false when there is none.
bool keep(Head* head) {
  for (Place& place : places) {
    Head* nothing = nullptr;
    if (place.compare_exchange_strong(nothing, head)) return true;
  }
  return false;
}

Head* takeKept(std::size_t size) {
  for (Place& place : places) {
    Head* const head = place.exchange(nullptr);
    if (head == nullptr) continue;
    if (head->size >= size) return head;
    freeBlock(head);  // a larger one will come into its place
  }
  return nullptr;
}

Head* newBlock(std::size_t size) {
  try {
    return new (::operator new(sizeof(Head) + size)) Head{size};
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

char* takeBlock(std::size_t size) {
  Head* head = size >= minKeptBlock && size <= maxKeptBlock ? takeKept(size) : nullptr;
  if (head == nullptr) head = newBlock(size);
  for (int tries = 1; head == nullptr && tries < mostTries; ++tries) {
    std::this_thread::sleep_for(pause);
    head = newBlock(size);
  }
  return head != nullptr ? reinterpret_cast<char*>(head + 1) : nullptr;
}

void giveBlock(char* block) {
  if (block == nullptr) return;
  Head* const head = reinterpret_cast<Head*>(block) - 1;
  const bool isKept = head->size >= minKeptBlock && head->size <= maxKeptBlock;
  if (!isKept || !keep(head)) freeBlock(head);
}

}  // namespace media::win::chrome_inspect
