#include <windows.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/registry.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t roomEnough = 65536;

// Each process has its own, as several run at a time.
const std::wstring testParent =
    L"Software\\morva-unit-tests-" + std::to_wstring(GetCurrentProcessId());
const std::wstring testKey = testParent + L"\\registry";

class ReadUserRegistryString : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, testKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key_, nullptr),
              ERROR_SUCCESS);
  }
  void TearDown() override {
    RegCloseKey(key_);
    RegDeleteKeyW(HKEY_CURRENT_USER, testKey.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, testParent.c_str());
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
  EXPECT_FALSE(readUserRegistryString(testParent + L"\\none", L"cli", roomEnough, data));
  EXPECT_EQ(data, "before");
}

using Names = std::vector<std::wstring>;

class UserRegistry : public testing::Test {
 protected:
  ~UserRegistry() override {
    for (const wchar_t* name : {L"\\a\\b", L"\\a", L""}) {
      RegDeleteKeyW(HKEY_CURRENT_USER, (testParent + name).c_str());
    }
  }
  std::uint32_t error_ = 0;
};

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
  const DWORD stored = 7;
  ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, testParent.c_str(), L"n", REG_DWORD, &stored,
                            sizeof stored),
            ERROR_SUCCESS);
  EXPECT_TRUE(writeUserRegistryString(testParent, L"text", L"7", error_));
  std::uint32_t number = 1;
  EXPECT_TRUE(readRegistryNumber(RegistryRoot::user, testParent, L"n", number));
  EXPECT_EQ(number, 7U);
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent, L"text", number));
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent, L"none", number));
  EXPECT_FALSE(readRegistryNumber(RegistryRoot::user, testParent + L"\\none", L"n", number));
  EXPECT_EQ(number, 7U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
