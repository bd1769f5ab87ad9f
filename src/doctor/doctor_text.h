#pragma once

#include <string>

#include "doctor/doctor.h"

namespace media::win::chrome_inspect {

// A diagnosis for people: a line for each finding and one below it with what to do.
std::string diagnosisTable(const Diagnosis& diagnosis);

// The same for programs, as docs/schema/doctor.schema.json describes it.
std::string diagnosisJson(const Diagnosis& diagnosis);

}  // namespace media::win::chrome_inspect
