#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/registry.h"

namespace media::win::chrome_inspect {
namespace {

const std::string mark = "before";
constexpr std::size_t roomEnough = 65536;

// Each process has its own, as several run at a time.
const std::wstring testParent =
    L"Software\\morva-unit-tests-" + std::to_wstring(GetCurrentProcessId());

using Names = std::vector<std::wstring>;

class UserRegistry : public testing::Test {
 protected:
  ~UserRegistry() override {
    for (const wchar_t* name : {L"\\a\\b", L"\\a", L""}) {
      RegDeleteKeyW(HKEY_CURRENT_USER, (testParent + name).c_str());
    }
  }

  bool store(DWORD type, const std::string& bytes) const {
    return RegSetKeyValueW(HKEY_CURRENT_USER, testParent.c_str(), L"v", type, bytes.data(),
                           static_cast<DWORD>(bytes.size())) == ERROR_SUCCESS;
  }
  // The value, "before" when it cannot be read.
  std::string load(std::size_t maxBytes = roomEnough) const {
    std::string data = mark;
    const bool isRead = readUserRegistryString(testParent, L"v", maxBytes, data);
    EXPECT_EQ(isRead, data != mark);
    return data;
  }

  std::uint32_t error_ = 0;
};

TEST_F(UserRegistry, ReadsTheBytesOfATextAsStored) {
  EXPECT_EQ(load(), mark);
  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"terminated", std::string("C\0:\0\0\0", 6)},
      {"without terminator", std::string("C\0:\0", 4)},
      {"NUL inside", std::string("a\0\0\0b\0", 6)},
      {"odd number of bytes", std::string("C\0:", 3)},
      {"empty", ""},
      {"as large as there is room", std::string(roomEnough - 2, 'x') + std::string(2, '\0')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(store(REG_SZ, c.bytes));
    const std::string data = load();
    EXPECT_TRUE(data.starts_with(c.bytes)) << data.substr(0, 99);
    // The system may add a terminator of its own.
    EXPECT_EQ(data.find_first_not_of('\0', c.bytes.size()), data.npos);
    EXPECT_LE(data.size(), c.bytes.size() + 2);
  }
}

TEST_F(UserRegistry, RefusesLongerTextsOtherTypesAndWhatIsMissing) {
  const std::string text = std::string("C\0:\0\0\0", 6);
  ASSERT_TRUE(store(REG_SZ, std::string(8, 'x')));
  EXPECT_EQ(load(6), mark);
  for (const DWORD type : {DWORD{REG_EXPAND_SZ}, DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}}) {
    ASSERT_TRUE(store(type, text));
    EXPECT_EQ(load(), mark) << type;
  }
  std::string data = mark;
  EXPECT_FALSE(readUserRegistryString(testParent + L"\\none", L"v", roomEnough, data));
  EXPECT_EQ(data, mark);
}

TEST_F(UserRegistry, WritesATextAndTheKeysAboveIt) {
  const std::wstring key = testParent + L"\\a\\b";
  EXPECT_TRUE(writeUserRegistryString(key, L"", L"default", error_));
  EXPECT_TRUE(writeUserRegistryString(key, L"name", L"\u6f22", error_));
  EXPECT_TRUE(writeUserRegistryString(key, L"", L"newer", error_));
  std::string data;
  EXPECT_TRUE(readUserRegistryString(key, L"", roomEnough, data));
  EXPECT_EQ(data, std::string("n\0e\0w\0e\0r\0\0\0", 12));
  EXPECT_TRUE(readUserRegistryString(key, L"name", roomEnough, data));
  EXPECT_EQ(data, std::string("\x22\x6f\0\0", 4));
  EXPECT_FALSE(readRegistryString(RegistryRoot::machine, key, L"", roomEnough, data));
}

TEST_F(UserRegistry, ListsWhatIsInAKey) {
  EXPECT_TRUE(writeUserRegistryString(testParent + L"\\a", L"", L"x", error_));
  EXPECT_TRUE(writeUserRegistryString(testParent, L"v", L"x", error_));
  RegistryKeyContent content;
  EXPECT_TRUE(listRegistryKey(RegistryRoot::user, testParent, content));
  EXPECT_EQ(content.keys, Names{L"a"});
  EXPECT_EQ(content.values, Names{L"v"});
  EXPECT_TRUE(listRegistryKey(RegistryRoot::user, testParent + L"\\a", content));
  EXPECT_EQ(content.keys, Names{});
  EXPECT_EQ(content.values, Names{L""});
  EXPECT_FALSE(listRegistryKey(RegistryRoot::user, testParent + L"\\none", content));
  EXPECT_EQ(content.values, Names{L""});
}

TEST_F(UserRegistry, RemovesOnlyWhatIsEmpty) {
  EXPECT_TRUE(writeUserRegistryString(testParent + L"\\a", L"v", L"x", error_));
  EXPECT_TRUE(deleteUserRegistryKeyIfEmpty(testParent, error_));
  EXPECT_TRUE(deleteUserRegistryKeyIfEmpty(testParent + L"\\a", error_));
  RegistryKeyContent content;
  EXPECT_TRUE(listRegistryKey(RegistryRoot::user, testParent + L"\\a", content));
  EXPECT_TRUE(deleteUserRegistryValue(testParent + L"\\a", L"v", error_));
  EXPECT_TRUE(deleteUserRegistryKeyIfEmpty(testParent + L"\\a", error_));
  EXPECT_FALSE(listRegistryKey(RegistryRoot::user, testParent + L"\\a", content));
}

TEST_F(UserRegistry, WhatIsNotThereCountsAsRemoved) {
  EXPECT_TRUE(deleteUserRegistryValue(testParent + L"\\none", L"v", error_));
  EXPECT_TRUE(deleteUserRegistryKeyIfEmpty(testParent + L"\\none", error_));
  EXPECT_TRUE(writeUserRegistryString(testParent, L"", L"x", error_));
  EXPECT_TRUE(deleteUserRegistryValue(testParent, L"v", error_));
  EXPECT_TRUE(deleteUserRegistryValue(testParent, L"", error_));
}

TEST_F(UserRegistry, ReadsANumberThatIsOne) {
  ASSERT_TRUE(store(REG_DWORD, std::string("\x07\0\0\0", 4)));
  EXPECT_TRUE(writeUserRegistryString(testParent, L"text", L"7", error_));
  std::uint32_t number = 1;
  EXPECT_TRUE(readRegistryNumber(RegistryRoot::user, testParent, L"v", number));
  EXPECT_EQ(number, 7U);
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent, L"text", number));
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent, L"none", number));
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent + L"\\none", L"v", number));
  EXPECT_EQ(number, 7U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
