#include "setup/help_text.h"

#include "common/product_names.h"
#include "common/product_version.h"
#include "setup/browsers.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* usage = R"(
The browser side of the morva desktop assistant. Chrome starts this program by itself when the
assistant's side panel opens; there is no need to start it by hand, but for:

  --register      make it known to your browsers, for you alone
  --unregister    take that back
  --doctor        look at everything that it needs, change nothing, and say what to do;
                  the exit code is 0 when there is no problem, else 1
  --mcp           serve a program that speaks the Model Context Protocol on standard input and
                  output: it gets the browser's tools; --doctor prints its configuration
  --version       print the version
  --help, -h      print this

with --register and --unregister:
  --browser NAME  only this browser, may be given several times; NAME is one of
                  )";

constexpr const char* usageRest = R"(
                  (without it: --register takes those that are installed, --unregister all)
  --all-users     for all users of this machine, as an administrator
  --dry-run       say what would be done, and do nothing

with --register:
  --extension-id ID
                  also let this extension start it, for development; may be given several times

with --doctor:
  --json          print JSON
)";

}  // namespace

std::string helpText() {
  return std::string(programName) + " " + productVersion + "\n" + usage + browserNames() +
         usageRest;
}

}  // namespace media::win::chrome_inspect
