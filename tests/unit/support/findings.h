#pragma once

#include "doctor/finding.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// The finding of that name, which there is.
inline const Finding& find(const Findings& findings, const std::string& id) {
  static const Finding none;
  const auto found = std::ranges::find(findings, id, &Finding::id);
  EXPECT_NE(found, findings.end()) << id;
  return found == findings.end() ? none : *found;
}

inline std::ptrdiff_t problemsIn(const Findings& findings) {
  return std::ranges::count(findings, Health::problem, &Finding::health);
}

}  // namespace media::win::chrome_inspect
