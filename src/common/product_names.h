#pragma once

#include <string>
#include <string_view>

#include "text/wide.h"

// The names under which the browser's side and ours know each other.
namespace media::win::chrome_inspect {

// The assistant's extension, as browsers write an origin.
inline constexpr std::string_view extensionOrigin =
    "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc";

// The native-messaging host, in the extension, in manifests and in the registry.
inline constexpr std::string_view nativeHostName = "com.quenlark.morva.chrome";

// The registry key, below HKEY_CURRENT_USER or HKEY_LOCAL_MACHINE, in which the browser of
// `vendorKey` looks for the native-messaging host.
inline constexpr const wchar_t* chromeVendorKey = L"Google\\Chrome";
inline std::wstring nativeHostKey(std::wstring_view vendorKey) {
  return L"Software\\" + std::wstring(vendorKey) + L"\\NativeMessagingHosts\\" +
         toWide(nativeHostName);
}

// The pipe on which local programs reach the extension through the host.
inline constexpr const char* inspectPipeName = R"(\\.\pipe\morva-chrome-inspect)";

// The program, on its own and towards people.
inline constexpr std::string_view programName = "morva-chrome-host";

}  // namespace media::win::chrome_inspect
