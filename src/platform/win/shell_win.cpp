#include "platform/shell.h"

#include <windows.h>
#include <shellapi.h>

#include "platform/win/apartment_win.h"

namespace media::win::chrome_inspect {

bool shellExecute(const std::wstring& file, const wchar_t* verb, const std::wstring& parameters) {
  const Apartment apartment(Apartment::Kind::com);  // some handlers are COM objects
  SHELLEXECUTEINFOW call = {};
  call.cbSize = sizeof call;
  call.fMask = SEE_MASK_NOASYNC;  // this thread has no message loop, and may end at once
  call.lpVerb = verb;
  call.lpFile = file.c_str();
  call.lpParameters = parameters.empty() ? nullptr : parameters.c_str();
  call.nShow = SW_SHOWNORMAL;
  return ShellExecuteExW(&call) != FALSE;
}

}  // namespace media::win::chrome_inspect
