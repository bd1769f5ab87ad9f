#include "setup/help_text.h"

#include <sstream>

#include "common/product_version.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(HelpText, NamesEveryOptionAndSaysWhoStartsTheProgram) {
  const std::string help = helpText();
  for (const char* word :
       {"--help", "-h", "--version", "--register", "--unregister", "--doctor", "--browser",
        "--extension-id", "--dry-run", "--json", "chrome, edge, brave, vivaldi, chromium",
        "Chrome starts this program by itself", productVersion}) {
    EXPECT_NE(help.find(word), std::string::npos) << word;
  }
}

TEST(HelpText, FitsAConsole) {
  std::istringstream lines(helpText());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100U) << line;
}

}  // namespace
}  // namespace media::win::chrome_inspect
