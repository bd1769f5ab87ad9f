#pragma once

#include <utility>

namespace media::win::chrome_inspect {

// Makes an object that is never destroyed: detached threads may still use it after main has
// returned, while the process ends. Every process-wide object of ours is made by this.
template <class T, class... Args>
T& leaked(Args&&... args) {
  return *new T(std::forward<Args>(args)...);
}

}  // namespace media::win::chrome_inspect
