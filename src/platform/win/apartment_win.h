#pragma once

#include <objbase.h>
#include <ole2.h>

namespace media::win::chrome_inspect {

// Sets the calling thread up as a single-threaded COM apartment, and undoes only what it did.
class Apartment {
 public:
  enum class Kind { com, ole };

  explicit Apartment(Kind kind)
      : kind_(kind),
        result_(kind == Kind::ole ? OleInitialize(nullptr)
                                  : CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
  ~Apartment() {
    if (FAILED(result_)) return;
    if (kind_ == Kind::ole) {
      OleUninitialize();
    } else {
      CoUninitialize();
    }
  }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;

 private:
  Kind kind_;
  HRESULT result_;
};

}  // namespace media::win::chrome_inspect
