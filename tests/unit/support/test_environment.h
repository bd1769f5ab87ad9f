#pragma once

#include <string>

namespace media::win::chrome_inspect {

// Sets a variable for this process and for what the system looks up in its name; an empty value
// removes it.
void setEnvironment(const std::string& name, const std::string& value);

}  // namespace media::win::chrome_inspect
