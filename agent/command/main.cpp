// vxlan-agent: runs the controller client over a live database or recorded state, and shows what it
// makes of it.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "agent/base/Descriptor.h"
#include "agent/base/ExitStatus.h"
#include "agent/base/StopSignal.h"
#include "agent/command/Command.h"
#include "agent/command/CommandLine.h"
#include "agent/command/LiveCommands.h"
#include "agent/command/RunningOptions.h"
#include "agent/journal/Check.h"
#include "agent/journal/Generate.h"
#include "agent/journal/Journal.h"
#include "agent/journal/JournalFile.h"
#include "agent/replay/Replay.h"
#include "agent/trace/TraceCommand.h"
#include "framework/Ringlog/Ring.h"

namespace {

using Agent::Command;
using Agent::exitCodes;

constexpr auto largest32 = std::numeric_limits<std::uint32_t>::max();
constexpr auto largest64 = std::numeric_limits<std::uint64_t>::max();

// Each of these adds a command, and returns what it does; the options live as long as that.

Command addReplay(CLI::App& program) {
  struct Options {
    std::vector<std::string> journals;
    Agent::ReplayOptions replay;
    std::size_t rows = Agent::TableOptions().mostRows;
    Agent::RunningOptions running;
    std::string format = "table";
    std::string colour = "auto";
  };
  auto options = std::make_shared<Options>();
  auto& replay = options->replay;
  CLI::App& command = *program.add_subcommand("replay", "Play journals to the client");
  command.footer(
      "Each journal is played on a store of its own. Its dump lines, and its end, print\n"
      "what the client has made of it by then. A pipe is played as it comes from its\n"
      "first start line on; what comes before, or all, is kept in a temporary file.\n\n"
      "  vxlan-agent replay examples/journals/controller-restart.jsonl\n"
      "  vxlan-agent replay --timeline --time-per-read 0.001 --diff recording.jsonl\n"
      "  zcat recording.jsonl.gz | vxlan-agent replay --format json - | jq .client\n\n" +
      std::string(exitCodes));
  command.add_option("JOURNAL", options->journals, "State journals; - is the standard input")
      ->required();
  command
      .add_option("--format", options->format,
                  "table, for people (the default), or json, an object a line")
      ->check(Agent::oneOf({"table", "json"}))
      ->type_name("FORMAT");
  command.add_flag("--diff", replay.output.diff, "Dumps show only what has changed since the last");
  command.add_option("--rows", options->rows, "Most rows of each table; 0 is all")
      ->check(Agent::wholeNumber(0, largest32))
      ->type_name("NUMBER")
      ->capture_default_str();
  command
      .add_option("--color", options->colour,
                  "auto (the default), always or never; auto heeds NO_COLOR")
      ->check(Agent::oneOf({"auto", "always", "never"}))
      ->type_name("WHEN");
  command.add_flag("--timeline", replay.timeline, "A line for each turn of the event loop");
  auto* const timePerRead =
      command
          .add_option("--time-per-read", replay.timePerRead,
                      "Seconds by which a reading of the virtual clock moves it")
          ->check(Agent::seconds())
          ->type_name("SECONDS");
  command
      .add_flag("--realtime", replay.realtime,
                "Play at the speed of the recording; not with --time-per-read")
      ->excludes(timePerRead);
  command.add_flag("--keep-going", replay.keepGoing,
                   "Print exceptions as lines of the output, and go on");
  Agent::addRunningOptions(command, options->running);
  return [options](std::ostream& out, std::ostream& errors) -> int {
    auto& each = options->replay;
    if (options->format == "json") each.output.format = Agent::Format::json;
    each.output.table.mostRows = options->rows == 0 ? Agent::TableOptions::all : options->rows;
    each.output.table.colours = Agent::wantsColours(options->colour);
    each.progress = Agent::isTerminal(STDERR_FILENO);
    each.maxProcessTime = options->running.maxProcessTime;
    Ringlog::directoryIs(options->running.ringDirectory);
    const int status =
        Agent::replayCommand(options->journals, each, options->running.traceLevel, out, errors);
    if (Ringlog::error().empty()) return status;
    errors << "vxlan-agent: " << Ringlog::error() << '\n';
    return status == Agent::ExitStatus::done ? Agent::ExitStatus::failed : status;
  };
}

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

Command addCheck(CLI::App& program) {
  auto journals = std::make_shared<std::vector<std::string>>();
  CLI::App& command = *program.add_subcommand("check", "Validate journals without running them");
  command.footer("Exit status 1 if a line is malformed, else 2 if a value is refused.");
  command.add_option("JOURNAL", *journals, "State journals; - is the standard input")->required();
  return [journals](std::ostream& out, std::ostream& errors) -> int {
    Agent::CheckResult sum;
    for (const std::string& path : *journals) {
      Agent::JournalFile file(path);
      Agent::Journal journal(file.stream(), file.name());
      const auto result =
          Agent::check(journal, [&](const std::string& what) { errors << what << '\n'; });
      out << file.name() << ": " << result.lines << " good lines, " << result.malformed
          << " malformed, " << result.refused << " refused\n";
      sum.malformed += result.malformed;
      sum.refused += result.refused;
    }
    if (sum.malformed != 0) return Agent::ExitStatus::failed;
    return sum.refused != 0 ? Agent::ExitStatus::refused : Agent::ExitStatus::done;
  };
}

Command addGenerate(CLI::App& program) {
  auto options = std::make_shared<Agent::GenerateOptions>();
  using Limits = Agent::GenerateOptions;
  CLI::App& command = *program.add_subcommand("generate", "Make a journal of any size");
  command.footer("  vxlan-agent generate --vnis 1000 --hosts 1000 | vxlan-agent replay -");
  const auto add = [&command](const std::string& name, auto& number, const std::string& what,
                              std::uint64_t least, std::uint64_t most) {
    command.add_option(name, number, what)
        ->check(Agent::wholeNumber(least, most))
        ->type_name("NUMBER")
        ->capture_default_str();
  };
  add("--vnis", options->vnis, "VNIs, each with a VLAN of its own", 1, Limits::maxVnis);
  add("--hosts", options->hostsPerVni, "Hosts of each VNI", 0, Limits::maxHostsPerVni);
  add("--vteps", options->vteps, "Remote VTEPs", 1, Limits::maxVteps);
  add("--moves", options->moves, "Moves of hosts", 0, largest64);
  add("--restarts", options->restarts, "Restarts of the controller", 0, largest32);
  add("--seed", options->seed, "Another seed, another journal", 0, largest64);
  return [options](std::ostream& out, std::ostream&) -> int {
    Agent::generate(*options, out);
    return Agent::ExitStatus::done;
  };
}

int run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
  CLI::App program("The VXLAN controller client, live or over recorded state.", "vxlan-agent");
  program.set_version_flag("--version", VXLAN_VERSION);
  program.require_subcommand(1);
  program.footer("vxlan-agent COMMAND --help tells more.\n\n" + std::string(exitCodes));
  std::map<std::string, Command> commands;
  Agent::addLiveCommands(program, commands);
  commands["replay"] = addReplay(program);
  commands["trace"] = addTrace(program);
  commands["check"] = addCheck(program);
  commands["generate"] = addGenerate(program);
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
