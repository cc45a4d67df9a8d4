// vxlan-agent: runs the controller client over a live database or recorded state, and shows what it
// makes of it.
#include <CLI/CLI.hpp>
#include <exception>
#include <map>
#include <ostream>
#include <string>
#include <unistd.h>

#include "agent/base/Descriptor.h"
#include "agent/base/ExitStatus.h"
#include "agent/command/CheckCommandLine.h"
#include "agent/command/Command.h"
#include "agent/command/CommandLine.h"
#include "agent/command/DiffCommandLine.h"
#include "agent/command/ExplainCommandLine.h"
#include "agent/command/GenerateCommandLine.h"
#include "agent/command/LiveCommands.h"
#include "agent/command/ReplayCommandLine.h"
#include "agent/command/ReportCommandLine.h"
#include "agent/command/TraceCommandLine.h"

namespace {

using Agent::Command;
using Agent::exitCodes;

int run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
  CLI::App program("The VXLAN controller client, live or over recorded state.", "vxlan-agent");
  program.set_version_flag("--version", VXLAN_VERSION);
  program.require_subcommand(1);
  program.footer("vxlan-agent COMMAND --help tells more.\n\n" + std::string(exitCodes));
  std::map<std::string, Command> commands;
  Agent::addLiveCommands(program, commands);
  Agent::addExplain(program, commands);
  Agent::addReplay(program, commands);
  Agent::addReport(program, commands);
  Agent::addDiff(program, commands);
  Agent::addTrace(program, commands);
  Agent::addCheck(program, commands);
  Agent::addGenerate(program, commands);
  Agent::layOutHelp(program);
  try {
    program.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return program.exit(help, out, errors);
  } catch (const CLI::ParseError& error) {
    errors << Agent::usageText(program, error, argc > 1 ? argv[1] : "");
    return Agent::ExitStatus::wrongUsage;
  }
  return commands.at(program.get_subcommands().front()->get_name())(out, errors);
}

}  // namespace

int main(int argc, char** argv) {
  using Agent::OutputStream;
  OutputStream out(STDOUT_FILENO, "the output", OutputStream::Buffering::blocks);
  OutputStream errors(STDERR_FILENO, "standard error", OutputStream::Buffering::lines);
  int status = Agent::ExitStatus::failed;
  try {
    Agent::occupyStandardDescriptors();
    out.exceptions(std::ios::badbit);
    status = run(argc, argv, out, errors);
    out.flush();
    errors.check();
  } catch (const std::exception& error) {
    errors << "vxlan-agent: " << error.what() << '\n';
    if (status == Agent::ExitStatus::done) status = Agent::ExitStatus::failed;
  }
  out.exceptions(std::ios::goodbit);
  out.flush();  // what was printed before a failure
  return status;
}
