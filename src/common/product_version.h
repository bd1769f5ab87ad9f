#pragma once

namespace media::win::chrome_inspect {

// The version of this program, such as "1.2.3". Its one home is the project's version in
// CMakeLists.txt.
extern const char* const productVersion;

}  // namespace media::win::chrome_inspect
