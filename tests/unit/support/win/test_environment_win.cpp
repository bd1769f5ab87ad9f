#include "support/test_environment.h"

#include <cstdlib>

#include "text/wide.h"

namespace media::win::chrome_inspect {

// The run-time's own call: it changes its copy as well as the system's. The wide one: the other
// takes the text for one in the code page of the machine.
void setEnvironment(const std::string& name, const std::string& value) {
  _wputenv_s(toWide(name).c_str(), toWide(value).c_str());
}

}  // namespace media::win::chrome_inspect
