#pragma once

#include <string>

#include "doctor/finding.h"

namespace media::win::chrome_inspect {

struct Diagnosis {
  std::string version;  // of this program
  std::string program;  // its path
  std::string system;
  Findings findings;
};

// Looks at everything that the host needs, changing nothing and starting nothing. Takes some
// seconds: on Windows a closed port takes two to say so. No finding holds a token.
Diagnosis diagnose();

// Whether no finding is a problem.
bool isWell(const Diagnosis& diagnosis);

}  // namespace media::win::chrome_inspect
