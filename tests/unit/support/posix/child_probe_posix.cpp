#include "support/child_probe.h"

#include <filesystem>
#include <fstream>
#include <set>

namespace media::win::chrome_inspect {

const std::string_view inheritedByChild = "0 1 2";

std::wstring ownExecutable() { return std::filesystem::read_symlink("/proc/self/exe").wstring(); }

std::vector<std::string> ownArguments() {
  std::ifstream line("/proc/self/cmdline");
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(line, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

std::string inheritedStreams() {
  std::set<int> descriptors;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    descriptors.insert(std::stoi(entry.path().filename().string()));
  }
  descriptors.erase(*descriptors.rbegin());  // the one that reads the list
  std::string text;
  for (const int descriptor : descriptors) {
    text += (text.empty() ? "" : " ") + std::to_string(descriptor);
  }
  return text;
}

}  // namespace media::win::chrome_inspect
