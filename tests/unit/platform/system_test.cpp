// What takes one call of the system: its clock, environment, folders, facts, digests and threads.

#include <regex>

#include "common/product_version.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/system_facts.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

TEST(Clock, CountsMillisecondsAndSleepsAsLongAsAsked) {
  constexpr std::uint64_t tickMs = 16;  // how coarse the Windows clock may be
  const std::uint64_t before = tickCountMs();
  sleepMs(60);
  EXPECT_GE(tickCountMs() - before, 60 - tickMs);
}

TEST(ReadEnvironment, TakesAValueBelowTheLimitAndNoEmptyOne) {
  const std::tuple<std::string, std::size_t, bool> cases[] = {
      {std::string(30'000, 'x'), 32768, true},
      {"12345", 6, true},
      {"12345", 5, false},
      {"12345", 0, false},
      {"", 32768, false},
  };
  for (const auto& [stored, limit, ok] : cases) {
    SCOPED_TRACE(testing::Message() << stored.size() << " of " << limit);
    setEnvironment("MORVA_TEST_VARIABLE", stored);
    std::wstring value = L"before";
    EXPECT_EQ(readEnvironment(L"MORVA_TEST_VARIABLE", limit, value), ok);
    EXPECT_EQ(value, ok ? std::wstring(stored.begin(), stored.end()) : L"before");
    EXPECT_FALSE(readEnvironment(L"", limit, value));
  }
}

TEST(KnownFolders, HaveNoTrailingSeparatorAndNoPackage) {
  // Windows has the folders in any case; elsewhere these variables stand for them.
  setEnvironment("APPDATA", "/roaming/");
  setEnvironment("LOCALAPPDATA", "/local");
  std::wstring roaming, local, package = L"before";
  ASSERT_TRUE(roamingAppDataFolder(roaming));
  ASSERT_TRUE(localAppDataFolder(local));
  EXPECT_NE(roaming, local);
  for (const std::wstring& folder : {roaming, local}) {
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(std::wstring(L"/\\").find(folder.back()), std::wstring::npos);
  }
  EXPECT_FALSE(packageLocalStateFolder(package));
  EXPECT_EQ(package, L"before");
}

TEST(SystemFacts, NameThisProgramAndNumberItAndTheSystem) {
  std::wstring path;
  ASSERT_TRUE(ownProgramPath(path));
  EXPECT_TRUE(isExistingFile(path));
  EXPECT_NE(path.find(L"unit_tests"), std::wstring::npos);
  EXPECT_NE(systemVersion().find_first_of("0123456789"), std::string::npos);
  EXPECT_TRUE(std::regex_match(std::string(productVersion), std::regex(R"(\d+\.\d+\.\d+)")));
}

// From the examples to FIPS 180-4 (csrc.nist.gov), and bytes of any value.
TEST(Sha256, IsTheKnownDigestOnEveryThread) {
  const std::pair<std::string, const char*> cases[] = {
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {std::string(1'000'000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {std::string("\0\x01", 2),
       "b413f47d13ee2fe6c845b2ee141af81de858df4ec549a58b7970bb96645bc8d2"},
  };
  for (const auto& [bytes, digest] : cases) EXPECT_EQ(hexDigits(sha256(bytes)), digest);
  runThreads(8, [&cases](int) {
    for (int i = 0; i < 200; ++i) EXPECT_EQ(hexDigits(sha256("abc")), cases[0].second);
  });
}

TEST(RandomBytes, FillTheWholeBufferAnewAndNoMore) {
  std::array<unsigned char, 34> first{};
  std::array<unsigned char, 34> second{};
  ASSERT_TRUE(randomBytes(first.data() + 1, 32) && randomBytes(second.data() + 1, 32));
  EXPECT_EQ(first.front() + first.back() + second.front() + second.back(), 0);
  // Eight bytes at a time, which are never equal by chance.
  for (std::size_t at = 1; at < 33; at += 8) {
    EXPECT_NE(std::memcmp(&first[at], &second[at], 8), 0) << at;
  }
}

TEST(StartThread, RunsTheBodyOnAnotherThreadAndThenDestroysIt) {
  for (int i = 0; i < 500; ++i) {
    std::thread::id ran;
    Gate destroyed;
    std::shared_ptr<void> held(nullptr, [&destroyed](void*) { destroyed.open(); });
    ASSERT_TRUE(startThread([&ran, held = std::move(held)] {
      volatile char block[1024 * 1024] = {};  // half of a thread's stack
      if (block[sizeof block - 1] == 0) ran = std::this_thread::get_id();
    }));
    destroyed.wait();
    EXPECT_NE(ran, std::thread::id());
    EXPECT_NE(ran, std::this_thread::get_id());
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
