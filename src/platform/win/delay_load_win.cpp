#include <windows.h>
#include <delayimp.h>

#include <cstddef>

// What MinGW's import libraries for delay loading call when one of their functions is called for
// the first time; MSVC brings a helper of its own (learn.microsoft.com, "Understand the helper
// function"). The libraries are the system's and are taken from there only. A function that is
// missing is an exception of the system, as with the other helper: it would have kept the program
// from starting.

// The names are those of the linker and of the import libraries.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const IMAGE_DOS_HEADER __ImageBase;

namespace {

template <class Wanted>
Wanted* inImage(RVA address) {
  const char* const base = reinterpret_cast<const char*>(&__ImageBase);
  return reinterpret_cast<Wanted*>(const_cast<char*>(base + address));
}

// Loaded when first asked for, and never let go. Threads that ask at the same time each load it,
// which the system counts.
HMODULE libraryOf(const ImgDelayDescr& import) {
  auto* const kept = inImage<void*>(import.rvaHmod);
  if (void* const here = InterlockedCompareExchangePointer(kept, nullptr, nullptr)) {
    return static_cast<HMODULE>(here);
  }
  const HMODULE library =
      LoadLibraryExA(inImage<const char>(import.rvaDLLName), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  InterlockedExchangePointer(kept, library);
  return library;
}

}  // namespace

extern "C" FARPROC WINAPI __delayLoadHelper2(PCImgDelayDescr import, FARPROC* slot) {
  const std::ptrdiff_t number = slot - inImage<FARPROC>(import->rvaIAT);
  const auto* const names = inImage<const IMAGE_THUNK_DATA>(import->rvaINT);
  const auto* const name =
      inImage<const IMAGE_IMPORT_BY_NAME>(static_cast<RVA>(names[number].u1.AddressOfData));
  auto* const library = libraryOf(*import);
  const FARPROC function = library != nullptr
                               ? GetProcAddress(library, reinterpret_cast<const char*>(name->Name))
                               : nullptr;
  if (function == nullptr) {
    RaiseException(VcppException(ERROR_SEVERITY_ERROR, ERROR_PROC_NOT_FOUND), 0, 0, nullptr);
  }
  *slot = function;
  return function;
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
