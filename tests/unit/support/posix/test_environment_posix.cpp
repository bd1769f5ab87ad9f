#include "support/test_environment.h"

#include <cstdlib>

namespace media::win::chrome_inspect {

void setEnvironment(const std::string& name, const std::string& value) {
  if (value.empty()) {
    unsetenv(name.c_str());
  } else {
    setenv(name.c_str(), value.c_str(), 1);
  }
}

}  // namespace media::win::chrome_inspect
