#pragma once

#include "platform/clock.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

inline std::filesystem::path filePath(const std::string& utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

// A fresh folder that its destructor removes with all that is in it. No two tests get the same one,
// even when they run at the same time.
class TestFolder {
 public:
  TestFolder() : TestFolder(canonical(std::filesystem::temp_directory_path())) {}
  explicit TestFolder(const std::filesystem::path& parent) {
    std::uint64_t number = tickCountMs();
    do {
      path_ = parent / ("morva-unit-" + std::to_string(number++));
    } while (!create_directory(path_));
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code error;
    remove_all(path_, error);  // a leftover harms nobody
  }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Sets an environment variable of this process, which runs no other test.
struct EnvironmentVariable {
  EnvironmentVariable(const std::string& name, const std::string& value) {
    setEnvironment(name, value);
  }
};

}  // namespace media::win::chrome_inspect
