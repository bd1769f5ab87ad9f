#pragma once

#include <string>

namespace media::win::chrome_inspect {

// What "--help" prints.
std::string helpText();

}  // namespace media::win::chrome_inspect
