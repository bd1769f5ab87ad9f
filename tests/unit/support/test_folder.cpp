#include "support/test_folder.h"

#include <cstdlib>
#include <utility>

#include "platform/clock.h"
#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;

fs::path makeFreshFolder(const fs::path& parent) {
  for (std::uint64_t number = tickCountMs();; ++number) {
    fs::path path = parent / ("morva-unit-" + std::to_string(number));
    if (fs::create_directory(path)) return path;
  }
}

std::string currentValue(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value != nullptr ? value : "";
}

}  // namespace

TestFolder::TestFolder() : TestFolder(fs::canonical(fs::temp_directory_path())) {}

TestFolder::TestFolder(const fs::path& parent) : path_(makeFreshFolder(parent)) {}

TestFolder::~TestFolder() {
  std::error_code error;
  fs::remove_all(path_, error);  // a leftover harms nobody
}

EnvironmentVariable::EnvironmentVariable(std::string name, const std::string& value)
    : name_(std::move(name)), before_(currentValue(name_)) {
  setEnvironment(name_, value);
}

EnvironmentVariable::~EnvironmentVariable() { setEnvironment(name_, before_); }

}  // namespace media::win::chrome_inspect
