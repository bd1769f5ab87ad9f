#include "common/whole_file.h"

#include <utility>

namespace media::win::chrome_inspect {

bool readWholeFile(const OwnedFile& file, const FileFacts& facts, std::size_t maxBytes,
                   std::string& bytes) {
  if (!facts.isRegular || facts.size > maxBytes) return false;
  std::string found(static_cast<std::size_t>(facts.size), '\0');
  if (!readExactly(file, found.data(), found.size())) return false;
  bytes = std::move(found);
  return true;
}

bool readWholeFile(const std::wstring& path, std::size_t maxBytes, std::string& bytes) {
  OwnedFile file;
  FileFacts facts;
  return openForReading(path, file, facts) && readWholeFile(file, facts, maxBytes, bytes);
}

}  // namespace media::win::chrome_inspect
