#include "support/test_environment.h"

#include <cstdlib>

namespace media::win::chrome_inspect {

// The run-time's own call: it changes its copy as well as the system's.
void setEnvironment(const std::string& name, const std::string& value) {
  _putenv_s(name.c_str(), value.c_str());
}

}  // namespace media::win::chrome_inspect
