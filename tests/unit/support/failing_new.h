#pragma once

namespace media::win::chrome_inspect {

// While it lives, one allocation of this thread fails: the one with this number, counted from 0; if
// the failure lasts, all behind it, too.
// Allocations whose size is a multiple of 16 are not counted and never fail: the JSON library needs
// such a one to destroy a value, where nothing can be done about a failure.
class FailingNew {
 public:
  enum class Failure { once, lasting };
  explicit FailingNew(long number, Failure failure = Failure::once);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
  // Whether it has failed by now.
  static bool happened();
};

// Calls `use` again and again, each time with the next allocation failing, until it runs through.
// Returns how many failures there were.
template <class Use>
long failEachAllocation(const Use& use) {
  for (long number = 0;; ++number) {
    const FailingNew failing(number);
    use();
    if (!FailingNew::happened()) return number;
  }
}

}  // namespace media::win::chrome_inspect
