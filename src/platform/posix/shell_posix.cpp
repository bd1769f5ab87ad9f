#include "platform/shell.h"

#include <fcntl.h>

#include "platform/posix/descriptor_posix.h"
#include "platform/process.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t foreverMs = 0xFFFFFFFF;

std::wstring commandLineOf(const std::wstring& file, const std::wstring& parameters) {
  if (parameters.empty()) return L"\"xdg-open\" \"" + file + L"\"";
  return L"\"" + file + L"\" " + parameters;
}

}  // namespace

bool shellExecute(const std::wstring& file, const wchar_t* /*verb*/,
                  const std::wstring& parameters) {
  const OwnedDescriptor output =
      awayFromStandardStreams(OwnedDescriptor(::open("/dev/null", O_WRONLY | O_CLOEXEC)));
  OwnedProcess process;
  std::uint32_t systemError = 0;
  if (!output || spawnHidden(commandLineOf(file, parameters), L"", output.get(), process,
                             systemError) != SpawnResult::ok) {
    return false;
  }
  return waitForExit(process, foreverMs) && exitCodeOf(process) == 0;
}

}  // namespace media::win::chrome_inspect
