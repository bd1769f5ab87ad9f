#include "platform/shell.h"

#include <windows.h>
#include <shellapi.h>

#include "platform/win/apartment_win.h"

namespace media::win::chrome_inspect {

bool shellExecute(const std::wstring& file, const wchar_t* verb, const std::wstring& parameters) {
  const Apartment apartment(Apartment::Kind::com);  // some handlers are COM objects
  const HINSTANCE result =
      ShellExecuteW(nullptr, verb, file.c_str(), parameters.empty() ? nullptr : parameters.c_str(),
                    nullptr, SW_SHOWNORMAL);
  return reinterpret_cast<INT_PTR>(result) > 32;  // below are error codes, for compatibility
}

}  // namespace media::win::chrome_inspect
