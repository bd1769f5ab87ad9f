#pragma once

#include <filesystem>
#include <string>

namespace media::win::chrome_inspect {

// A fresh folder that its destructor removes with all that is in it. No two tests get the same one,
// even when they run at the same time.
class TestFolder {
 public:
  TestFolder();  // among the temporary files
  explicit TestFolder(const std::filesystem::path& parent);
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder();

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Sets an environment variable of this process, and puts back what was there.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const std::string& value);
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable();

 private:
  std::string name_;
  std::string before_;
};

}  // namespace media::win::chrome_inspect
