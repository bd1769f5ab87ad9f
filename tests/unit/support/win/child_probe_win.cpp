#include "support/child_probe.h"

#include <windows.h>
#include <shellapi.h>

#include <filesystem>

namespace media::win::chrome_inspect {
namespace {

constexpr std::uintptr_t handleStep = 4;       // handle values are multiples of it
constexpr std::uintptr_t lastHandle = 0x4000;  // far more than a fresh process has

}  // namespace

// Standard output and error are one handle, and a null device is no pipe.
const std::string_view inheritedByChild = "1 pipe";

std::wstring ownExecutable() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::vector<std::string> ownArguments() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 0; i < count; ++i) {
    const std::u8string text = std::filesystem::path(words[i]).u8string();
    arguments.emplace_back(text.begin(), text.end());
  }
  LocalFree(words);
  return arguments;
}

std::string inheritedStreams() {
  int pipes = 0;
  for (std::uintptr_t value = handleStep; value <= lastHandle; value += handleStep) {
    if (GetFileType(reinterpret_cast<HANDLE>(value)) == FILE_TYPE_PIPE) ++pipes;
  }
  return std::to_string(pipes) + " pipe";
}

}  // namespace media::win::chrome_inspect
