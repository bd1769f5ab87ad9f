#pragma once

#include <string>
#include <vector>

// What a crash leaves: a small dump in a folder beside the host's other things. The newest three
// are kept, and none of them ever leaves the machine by itself.
namespace media::win::chrome_inspect {

inline constexpr std::size_t maxCrashFiles = 3;

struct CrashFile {
  std::wstring name;
  std::string version;  // of the program that crashed
  std::string when;     // "2026-11-22 08:44:55 UTC"
};

// Takes a name apart: "crash-VERSION-20261122T084455Z-PROCESS.dmp". False for any other.
bool readCrashFileName(const std::wstring& name, CrashFile& file);

// Where that folder is or would be; empty when the system names no place for it.
std::wstring crashFolderPath();

// The crash files in a folder, newest first; nothing else in it counts.
std::vector<CrashFile> crashFilesIn(const std::wstring& folder);

// Deletes all crash files of the folder but the newest.
void dropOldCrashFiles(const std::wstring& folder);

// From now on a crash of this process leaves such a file (see platform/crash_dump.h).
void leaveCrashFiles();

}  // namespace media::win::chrome_inspect
