#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace media::win::chrome_inspect {

// `note` is worth knowing and keeps nothing from working; only `problem` makes the whole not well.
enum class Health { ok, note, problem };

// One fact behind a finding, for programs.
struct Fact {
  const char* name;
  std::variant<bool, std::int64_t, std::string> value;
};

// What the doctor has to say of one thing.
struct Finding {
  std::string id;       // stays the same from version to version, such as "agent.port.8090"
  std::string subject;  // the same for people
  Health health = Health::ok;
  std::string text;    // how it is
  std::string remedy;  // what to do, empty when there is nothing to be done
  std::vector<Fact> facts;
};

using Findings = std::vector<Finding>;

}  // namespace media::win::chrome_inspect
