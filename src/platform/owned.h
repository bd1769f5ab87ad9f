#pragma once

#include <utility>

namespace media::win::chrome_inspect {

// Owns one resource of the operating system and closes it exactly once. `Traits` has `Raw`,
// `none()`, `valid(raw)` and `close(raw)`. An owner belongs to one thread, or lives under one lock.
template <class Traits>
class Owned {
 public:
  using Raw = typename Traits::Raw;
  Owned() = default;
  explicit Owned(Raw raw) : raw_(raw) {}
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Owned(Owned&& other) noexcept : raw_(other.release()) {}
  Owned& operator=(Owned&& other) noexcept {
    reset(other.release());  // closes what we held; safe when `other` is `*this`
    return *this;
  }
  ~Owned() { reset(); }
  explicit operator bool() const { return Traits::valid(raw_); }
  Raw get() const { return raw_; }  // borrowed
  [[nodiscard]] Raw release() { return std::exchange(raw_, Traits::none()); }
  void reset(Raw raw = Traits::none()) {
    const Raw old = std::exchange(raw_, raw);
    if (Traits::valid(old)) Traits::close(old);
  }

 private:
  Raw raw_ = Traits::none();
};

}  // namespace media::win::chrome_inspect
