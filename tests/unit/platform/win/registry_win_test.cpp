#include <windows.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/registry.h"

namespace media::win::chrome_inspect {
namespace {

constexpr wchar_t testKey[] = L"Software\\morva-unit-tests\\registry";
constexpr wchar_t testParent[] = L"Software\\morva-unit-tests";
constexpr std::size_t roomEnough = 65536;

class ReadUserRegistryString : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, testKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &key_, nullptr),
              ERROR_SUCCESS);
  }
  void TearDown() override {
    RegCloseKey(key_);
    RegDeleteKeyW(HKEY_CURRENT_USER, testKey);
    RegDeleteKeyW(HKEY_CURRENT_USER, testParent);
  }

  void store(DWORD type, const std::string& bytes) {
    ASSERT_EQ(RegSetValueExW(key_, L"cli", 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                             static_cast<DWORD>(bytes.size())),
              ERROR_SUCCESS);
  }

  static bool load(std::string& data, std::size_t maxBytes = roomEnough) {
    return readUserRegistryString(testKey, L"cli", maxBytes, data);
  }

 private:
  HKEY key_ = nullptr;
};

struct ValueCase {
  const char* name;
  std::string bytes;
};

const ValueCase valueCases[] = {
    {"terminated", std::string("C\0:\0\0\0", 6)},
    {"without terminator", std::string("C\0:\0", 4)},
    {"NUL inside", std::string("a\0\0\0b\0", 6)},
    {"empty", ""},
    {"as large as there is room", std::string(roomEnough - 2, 'x') + std::string(2, '\0')},
};

TEST_F(ReadUserRegistryString, GivesTheBytesAsStored) {
  for (const ValueCase& c : valueCases) {
    SCOPED_TRACE(c.name);
    store(REG_SZ, c.bytes);
    std::string data = "before";
    EXPECT_TRUE(load(data));
    // The system may add a terminator of its own.
    EXPECT_TRUE(data == c.bytes || data == c.bytes + std::string(2, '\0')) << data.substr(0, 99);
  }
}

TEST_F(ReadUserRegistryString, TakesAnOddNumberOfBytes) {
  store(REG_SZ, std::string("C\0:", 3));
  std::string data;
  EXPECT_TRUE(load(data));
  EXPECT_EQ(data.substr(0, 3), std::string("C\0:", 3));
}

TEST_F(ReadUserRegistryString, RefusesWhatIsLongerThanAsked) {
  store(REG_SZ, std::string(8, 'x'));
  std::string data = "before";
  EXPECT_FALSE(load(data, 6));
  EXPECT_EQ(data, "before");
}

TEST_F(ReadUserRegistryString, RefusesOtherTypes) {
  for (const DWORD type : {DWORD{REG_EXPAND_SZ}, DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}}) {
    SCOPED_TRACE(type);
    store(type, std::string("C\0:\0\0\0", 6));
    std::string data = "before";
    EXPECT_FALSE(load(data));
    EXPECT_EQ(data, "before");
  }
}

TEST_F(ReadUserRegistryString, IsFalseForAMissingValueOrKey) {
  std::string data = "before";
  EXPECT_FALSE(load(data));
  EXPECT_FALSE(
      readUserRegistryString(L"Software\\morva-unit-tests\\none", L"cli", roomEnough, data));
  EXPECT_EQ(data, "before");
}

}  // namespace
}  // namespace media::win::chrome_inspect
