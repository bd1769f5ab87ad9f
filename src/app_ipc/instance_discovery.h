#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace media::win::chrome_inspect {

// A running instance of the desktop application, as it announced itself in a file.
struct AppInstance {
  std::string host = "127.0.0.1";
  std::uint32_t port = 0;  // 0: no instance was found
  std::string token;       // hexadecimal; goes into no log line
  std::int64_t startedUnixMs = 0;
};

// Larger files are no announcement.
inline constexpr std::size_t maxInstanceFileBytes = 1024 * 1024;

// Finds the most recently started instance that is alive and takes commands; port 0 when there is
// none. Files that are not what they should be are passed over. Reads folders and files; never
// throws for what is in them.
AppInstance discoverAppInstance();

// What one announcement says, alive or not: false unless it is a well-formed one of an instance
// that takes commands. `pid` is the announced process.
bool readAnnouncement(const std::string& text, AppInstance& instance, std::uint32_t& pid);

}  // namespace media::win::chrome_inspect
