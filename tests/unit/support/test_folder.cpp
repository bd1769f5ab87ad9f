#include "support/test_folder.h"

#include <cstdlib>
#include <utility>

#include "platform/clock.h"
#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;

fs::path makeFreshFolder() {
  const fs::path base = fs::canonical(fs::temp_directory_path());
  for (std::uint64_t number = tickCountMs();; ++number) {
    fs::path path = base / ("morva-unit-" + std::to_string(number));
    if (fs::create_directory(path)) return path;
  }
}

std::string currentValue(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value != nullptr ? value : "";
}

}  // namespace

TestFolder::TestFolder() : path_(makeFreshFolder()) {}

TestFolder::~TestFolder() {
  std::error_code error;
  fs::remove_all(path_, error);  // a leftover in the folder for temporary files harms nobody
}

EnvironmentVariable::EnvironmentVariable(std::string name, const std::string& value)
    : name_(std::move(name)), before_(currentValue(name_)) {
  setEnvironment(name_, value);
}

EnvironmentVariable::~EnvironmentVariable() { setEnvironment(name_, before_); }

}  // namespace media::win::chrome_inspect
