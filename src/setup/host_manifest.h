#pragma once

#include <string>
#include <string_view>
#include <vector>

// The file in which a browser reads which program a native-messaging host is and which extensions
// may start it (developer.chrome.com, "Native messaging", host manifest).
namespace media::win::chrome_inspect {

// Where a program's manifest lies: beside it.
std::wstring manifestPathFor(const std::wstring& program);

// The manifest for the program with this full path, for the assistant's extension and those with
// `moreExtensionIds`. The same arguments always make the same bytes.
std::string manifestText(const std::wstring& program,
                         const std::vector<std::string>& moreExtensionIds);

// Whether a browser takes this text for the host's manifest and lets the assistant's extension
// start it. `program` is then the program that it names, as written. Failure: false, and `error`
// says what is wrong.
bool readManifest(std::string_view text, std::string& program, std::string& error);

// A browser starts a program by its command line, in which Windows takes no longer path than this,
// in UTF-16 units (learn.microsoft.com, CreateProcessW, "lpCommandLine").
inline constexpr std::size_t maxProgramPath = 259;

// Of a manifest that is read, inclusive.
inline constexpr std::size_t maxManifestBytes = 1024 * 1024;

}  // namespace media::win::chrome_inspect
