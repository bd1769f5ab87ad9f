#include <windows.h>

#include "platform/crash_dump.h"
// After what it needs.
#include <dbghelp.h>

#include "common/crash_files.h"
#include "support/child_probe.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

// A part of the dump that begins at `offset`.
template <class Part>
Part partAt(const std::string& dump, std::size_t offset) {
  Part part = {};
  EXPECT_LE(offset + sizeof part, dump.size());
  if (offset + sizeof part <= dump.size()) std::memcpy(&part, dump.data() + offset, sizeof part);
  return part;
}

// The code of the exception of which the dump tells; 0 when it tells of none.
DWORD exceptionIn(const std::string& dump) {
  const auto header = partAt<MINIDUMP_HEADER>(dump, 0);
  EXPECT_TRUE(dump.starts_with("MDMP"));
  EXPECT_EQ(header.Flags, static_cast<ULONG64>(MiniDumpNormal));
  for (ULONG32 i = 0; i < header.NumberOfStreams; ++i) {
    const auto entry = partAt<MINIDUMP_DIRECTORY>(
        dump, header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY));
    if (entry.StreamType != ExceptionStream) continue;
    return partAt<MINIDUMP_EXCEPTION_STREAM>(dump, entry.Location.Rva)
        .ExceptionRecord.ExceptionCode;
  }
  return 0;
}

struct Crash {
  const wchar_t* kind;
  DWORD exitCode;
  DWORD exception;

  friend void PrintTo(const Crash& crash, std::ostream* out) { *out << toUtf8(crash.kind); }
};

class Crashes : public testing::TestWithParam<Crash> {};

TEST_P(Crashes, LeaveASmallDumpOfWhatHappened) {
  constexpr std::size_t smallBytes = 8 * 1024 * 1024;  // Wine writes the unused part of stacks too
  const TestFolder folder;
  const fs::path crashes = folder.path() / "crashes";  // made when it is needed
  const Spawned child =
      spawnProbe(std::wstring(L"crash ") + GetParam().kind + L" \"" + crashes.wstring() + L"\"");
  ASSERT_TRUE(waitForExit(child.process, 110'000));
  EXPECT_EQ(exitCodeOf(child.process), GetParam().exitCode);
  const std::vector<CrashFile> found = crashFilesIn(crashes.wstring());
  ASSERT_EQ(found.size(), 1U);
  EXPECT_TRUE(fs::exists(crashes / "afterwards"));
  std::ifstream stream(crashes / found[0].name, std::ios::binary);
  const std::string dump(std::istreambuf_iterator<char>(stream), {});
  EXPECT_LT(dump.size(), smallBytes);
  EXPECT_EQ(exceptionIn(dump), GetParam().exception);
}

INSTANTIATE_TEST_SUITE_P(
    OfEachKind, Crashes,
    testing::Values(Crash{L"access", EXCEPTION_ACCESS_VIOLATION, EXCEPTION_ACCESS_VIOLATION},
                    Crash{L"overflow", EXCEPTION_STACK_OVERFLOW, EXCEPTION_STACK_OVERFLOW},
                    Crash{L"throw", 3, 0x40000015}),
    [](const auto& kind) { return toUtf8(kind.param.kind); });

TEST(TraceCrashes, LoadsNothingUntilThen) {
  traceCrashes({L"C:\\none", [] {}, [] {}});
  EXPECT_EQ(GetModuleHandleW(L"dbghelp.dll"), nullptr);
}

}  // namespace
}  // namespace media::win::chrome_inspect
