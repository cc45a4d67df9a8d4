// vxlan-agent: runs the controller client over a live database or recorded state, and shows what it
// makes of it.
#include <CLI/CLI.hpp>
#include <exception>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <unistd.h>

#include "agent/base/Descriptor.h"
#include "agent/base/ExitStatus.h"
#include "agent/base/StopSignal.h"
#include "agent/command/CheckCommandLine.h"
#include "agent/command/Command.h"
#include "agent/command/CommandLine.h"
#include "agent/command/DiffCommandLine.h"
#include "agent/command/ExplainCommandLine.h"
#include "agent/command/GenerateCommandLine.h"
#include "agent/command/LiveCommands.h"
#include "agent/command/ReplayCommandLine.h"
#include "agent/trace/TraceCommand.h"

namespace {

using Agent::Command;
using Agent::exitCodes;

// Adds a command, and returns what it does; the options live as long as that.
Command addTrace(CLI::App& program) {
  struct Options {
    Agent::TraceOptions trace;
    bool follow = false;
    std::string format = "text";
  };
  auto options = std::make_shared<Options>();
  CLI::App& command = *program.add_subcommand("trace", "Render a trace ring file");
  command.footer(
      "The file may be of a process that runs, has ended, or has crashed.\n\n"
      "  vxlan-agent trace --grep 02:00:00:00:00:07 DpxVxlanControllerSm.rlg");
  command.add_option("FILE", options->trace.file, "The ring file")->required();
  command.add_option("--level", options->trace.mostLevel, "Messages of the levels 0 to N")
      ->check(Agent::wholeNumber(0, 9))
      ->type_name("NUMBER")
      ->capture_default_str();
  command
      .add_option("--grep", options->trace.grep,
                  "Messages in which this regular expression (of RE2) is found")
      ->type_name("REGEX");
  command.add_flag("--follow", options->follow, "Go on with new messages until interrupted");
  command.add_option("--format", options->format, "text or json")
      ->check(Agent::oneOf({"text", "json"}))
      ->type_name("FORMAT")
      ->capture_default_str();
  return [options](std::ostream& out, std::ostream& errors) {
    options->trace.json = options->format == "json";
    if (options->follow) {
      Agent::StopSignal::install();
      options->trace.follow = Agent::pauseUntil(Agent::StopSignal::isSet());
    }
    return Agent::traceCommand(options->trace, out, errors);
  };
}

int run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
  CLI::App program("The VXLAN controller client, live or over recorded state.", "vxlan-agent");
  program.set_version_flag("--version", VXLAN_VERSION);
  program.require_subcommand(1);
  program.footer("vxlan-agent COMMAND --help tells more.\n\n" + std::string(exitCodes));
  std::map<std::string, Command> commands;
  Agent::addLiveCommands(program, commands);
  Agent::addExplain(program, commands);
  Agent::addReplay(program, commands);
  Agent::addDiff(program, commands);
  commands["trace"] = addTrace(program);
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
