#include "host/user_command.h"

#include <string>

#include "common/product_names.h"
#include "common/product_version.h"
#include "doctor/doctor.h"
#include "doctor/doctor_text.h"
#include "mcp/mcp_server.h"
#include "platform/byte_stream.h"
#include "platform/console.h"
#include "platform/system_facts.h"
#include "setup/help_text.h"
#include "setup/registration.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int exitSuccess = 0;
constexpr int exitUsage = 2;

void print(const std::string& text) { writeText(standardOutput(), text); }

int runRegistration(const CommandLine& line) {
  RegistrationOptions options{{}, line.browsers, line.extensionIds, line.dryRun, line.allUsers};
  if (!ownProgramPath(options.program)) {
    writeText(standardError(), "the system does not tell where this program is\n");
    return exitFailure;
  }
  const bool registers = line.command == UserCommand::registerHost;
  const RegistrationReport report = registers ? registerHost(options) : unregisterHost(options);
  std::string text;
  for (const std::string& each : report.lines) text += each + "\n";
  if (line.dryRun) text += "nothing was changed\n";
  print(text);
  return report.ok ? exitSuccess : exitFailure;
}

int runDoctor(const CommandLine& line) {
  const Diagnosis diagnosis = diagnose();
  print(line.json ? diagnosisJson(diagnosis) : diagnosisTable(diagnosis));
  return isWell(diagnosis) ? exitSuccess : exitFailure;
}

// Somebody who double-clicks the program would see a window come and go.
void leaveTimeToRead() {
  if (!isConsole(standardInput()) || !isAloneOnConsole()) return;
  print("\nPress a key to close this window.\n");
  waitForKey();
}

}  // namespace

int runUserCommand(const Arguments& arguments) {
  CommandLine line;
  std::string error;
  if (!readCommandLine(arguments, line, error)) {
    const std::string name(programName);
    writeText(standardError(), name + ": " + error + "\ntry: " + name + " --help\n");
    return exitUsage;
  }
  switch (line.command) {
    case UserCommand::help:
      print(helpText());
      if (arguments.empty()) leaveTimeToRead();
      return exitSuccess;
    case UserCommand::version:
      print(std::string(programName) + " " + productVersion + "\n");
      return exitSuccess;
    case UserCommand::doctor:
      return runDoctor(line);
    case UserCommand::mcp:
      return runMcpServer();
    case UserCommand::registerHost:
    case UserCommand::unregisterHost:
      return runRegistration(line);
  }
  return exitUsage;
}

}  // namespace media::win::chrome_inspect
