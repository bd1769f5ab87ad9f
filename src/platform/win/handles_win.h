#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/owned.h"

// Kernel handles, which the headers of the platform know as numbers.
namespace media::win::chrome_inspect {

inline HANDLE handleOf(std::intptr_t raw) { return reinterpret_cast<HANDLE>(raw); }
inline std::intptr_t rawOf(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

template <class Traits>
HANDLE handleOf(const Owned<Traits>& owner) {
  return handleOf(owner.get());
}

// What one call reads or writes of `size` bytes.
inline DWORD oneCall(std::size_t size) {
  return static_cast<DWORD>(std::min<std::size_t>(size, MAXLONG));
}

struct KernelHandleTraits {
  using Raw = HANDLE;
  static Raw none() { return nullptr; }
  // CreateFile fails with INVALID_HANDLE_VALUE, OpenProcess with nullptr: neither is a handle.
  static bool valid(Raw raw) { return raw != nullptr && raw != INVALID_HANDLE_VALUE; }
  static void close(Raw raw) { CloseHandle(raw); }
};
using OwnedHandle = Owned<KernelHandleTraits>;

}  // namespace media::win::chrome_inspect
