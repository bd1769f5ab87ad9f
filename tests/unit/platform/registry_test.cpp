#include "platform/registry.h"

#include "support/test_registry.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string mark = "before";
constexpr std::size_t roomEnough = 65536;

// Each process has its own, as several run at a time.
const std::wstring testParent = L"Software\\morva-unit-tests-" + std::to_wstring(ownProcessId());

using Names = std::vector<std::wstring>;

class UserRegistry : public testing::Test {
 protected:
  ~UserRegistry() override { deleteRegistryTree(RegistryRoot::user, testParent); }

  bool store(std::uint32_t type, const std::string& bytes) const {
    return storeInRegistry(RegistryRoot::user, testParent, L"v", type, bytes);
  }
  // The value, "before" when it cannot be read.
  std::string load(std::size_t maxBytes = roomEnough) const {
    std::string data = mark;
    const bool isRead = readRegistryString(RegistryRoot::user, testParent, L"v", maxBytes, data);
    EXPECT_EQ(isRead, data != mark);
    return data;
  }

  const RegistryTurn turn_;
  std::uint32_t error_ = 0;
};

TEST_F(UserRegistry, ReadsTheBytesOfATextAsStored) {
  EXPECT_EQ(load(), mark);
  for (const std::string& bytes :
       {std::string("C\0:\0\0\0", 6), std::string("C\0:\0", 4), std::string("a\0\0\0b\0", 6),
        std::string("C\0:", 3), std::string(),
        std::string(roomEnough - 2, 'x') + std::string(2, '\0')}) {
    SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 99)));
    ASSERT_TRUE(store(registryText, bytes));
    const std::string data = load();
    EXPECT_TRUE(data.starts_with(bytes)) << data.substr(0, 99);
    // The system may add a terminator of its own.
    EXPECT_EQ(data.find_first_not_of('\0', bytes.size()), data.npos);
    EXPECT_LE(data.size(), bytes.size() + 2);
  }
  ASSERT_TRUE(store(registryText, std::string(8, 'x')));
  EXPECT_EQ(load(6), mark);
  for (const std::uint32_t type : {registryExpandableText, registryBinary}) {
    ASSERT_TRUE(store(type, std::string("C\0:\0\0\0", 6)));
    EXPECT_EQ(load(), mark) << type;
  }
}

TEST_F(UserRegistry, WritesATextAndTheKeysAboveIt) {
  const std::wstring key = testParent + L"\\a\\b";
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, key, L"", L"default", error_));
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, key, L"name", L"\u6f22", error_));
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, key, L"", L"newer", error_));
  std::string data;
  EXPECT_TRUE(readRegistryString(RegistryRoot::user, key, L"", roomEnough, data));
  EXPECT_EQ(data, std::string("n\0e\0w\0e\0r\0\0\0", 12));
  EXPECT_TRUE(readRegistryString(RegistryRoot::user, key, L"name", roomEnough, data));
  EXPECT_EQ(data, std::string("\x22\x6f\0\0", 4));
  EXPECT_FALSE(
      readRegistryString(RegistryRoot::user, testParent + L"\\none", L"v", roomEnough, data));
  EXPECT_FALSE(readRegistryString(RegistryRoot::machine, key, L"", roomEnough, data));
}

TEST_F(UserRegistry, ListsWhatIsInAKeyAndRemovesOnlyWhatIsEmpty) {
  const std::wstring key = testParent + L"\\a";
  const std::wstring none = testParent + L"\\none";
  RegistryKeyContent content;
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, key, L"", L"x", error_));
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, testParent, L"v", L"x", error_));
  EXPECT_TRUE(listRegistryKey(RegistryRoot::user, testParent, content));
  EXPECT_EQ(content.keys, Names{L"a"});
  EXPECT_EQ(content.values, Names{L"v"});
  EXPECT_TRUE(deleteRegistryKeyIfEmpty(RegistryRoot::user, testParent, error_));
  EXPECT_TRUE(deleteRegistryKeyIfEmpty(RegistryRoot::user, key, error_));
  EXPECT_TRUE(listRegistryKey(RegistryRoot::user, key, content));
  EXPECT_EQ(content.keys, Names{});
  EXPECT_EQ(content.values, Names{L""});
  EXPECT_FALSE(listRegistryKey(RegistryRoot::user, none, content));
  EXPECT_EQ(content.values, Names{L""});
  EXPECT_TRUE(deleteRegistryValue(RegistryRoot::user, key, L"", error_));
  EXPECT_TRUE(deleteRegistryKeyIfEmpty(RegistryRoot::user, key, error_));
  EXPECT_FALSE(listRegistryKey(RegistryRoot::user, key, content));
  // What is not there counts as removed.
  EXPECT_TRUE(deleteRegistryValue(RegistryRoot::user, none, L"v", error_));
  EXPECT_TRUE(deleteRegistryKeyIfEmpty(RegistryRoot::user, none, error_));
  EXPECT_TRUE(deleteRegistryValue(RegistryRoot::user, testParent, L"other", error_));
}

TEST_F(UserRegistry, IsOneForProgramsOfBothSizesAndTheMachinesIsTwo) {
  const auto key = [&](RegistryRoot root, RegistryView view) {
    std::string data;
    return readRegistryString(root, testParent, L"", roomEnough, data, view);
  };
  for (const auto& [root, inOther] :
       {std::pair(RegistryRoot::user, true), std::pair(RegistryRoot::machine, false)}) {
    ASSERT_TRUE(mayWriteRegistry(root));
    ASSERT_TRUE(writeRegistryString(root, testParent, L"", L"x", error_)) << error_;
    EXPECT_TRUE(key(root, RegistryView::bits64));
    EXPECT_EQ(key(root, RegistryView::bits32), inOther);
    EXPECT_TRUE(deleteRegistryValue(root, testParent, L"", error_));
    EXPECT_TRUE(deleteRegistryKeyIfEmpty(root, testParent, error_));
  }
}

TEST_F(UserRegistry, ReadsANumberThatIsOne) {
  ASSERT_TRUE(store(registryNumber, std::string("\x07\0\0\0", 4)));
  EXPECT_TRUE(writeRegistryString(RegistryRoot::user, testParent, L"text", L"7", error_));
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
