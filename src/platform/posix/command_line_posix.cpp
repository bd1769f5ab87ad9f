#include "platform/posix/command_line_posix.h"

#include "text/wide.h"

namespace media::win::chrome_inspect {

std::vector<std::string> splitCommandLine(const std::wstring& line) {
  std::vector<std::string> words;
  std::wstring word;
  bool inWord = false;
  bool inQuotes = false;
  for (const wchar_t character : line + L" ") {
    const bool quote = character == L'"';
    if (quote) inQuotes = !inQuotes;
    if (!inQuotes && (character == L' ' || character == L'\t')) {
      if (inWord) words.push_back(toUtf8(word));
      word.clear();
      inWord = false;
      continue;
    }
    inWord = true;
    if (!quote) word.push_back(character);
  }
  return words;
}

}  // namespace media::win::chrome_inspect
