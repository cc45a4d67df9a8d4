#include "agent/command/ReplayCommandLine.h"

#include <limits>
#include <memory>
#include <ostream>
#include <unistd.h>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/command/CommandLine.h"
#include "agent/command/FilterOptions.h"
#include "agent/command/RunningOptions.h"
#include "agent/replay/Replay.h"
#include "framework/Ringlog/Ring.h"

namespace Agent {

void addReplay(CLI::App& program, std::map<std::string, Command>& commands) {
  struct Options {
    std::vector<std::string> journals;
    ReplayOptions replay;
    OutputOptions output;
    bool realtime = false;
    std::size_t rows = TableOptions().mostRows;
    RunningOptions running;
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
      ->check(oneOf({"table", "json"}))
      ->type_name("FORMAT");
  command.add_flag("--diff", options->output.diff,
                   "Dumps show only what has changed since the last");
  command.add_option("--rows", options->rows, "Most rows of each table; 0 is all")
      ->check(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("NUMBER")
      ->capture_default_str();
  command
      .add_option("--color", options->colour,
                  "auto (the default), always or never; auto heeds NO_COLOR")
      ->check(oneOf({"auto", "always", "never"}))
      ->type_name("WHEN");
  command.add_flag("--timeline", replay.timeline, "A line for each turn of the event loop");
  auto* const timePerRead =
      command
          .add_option("--time-per-read", replay.timePerRead,
                      "Seconds by which a reading of the virtual clock moves it")
          ->check(seconds())
          ->type_name("SECONDS");
  command
      .add_flag("--realtime", options->realtime,
                "Play at the speed of the recording; not with --time-per-read")
      ->excludes(timePerRead);
  command.add_option("--speed", replay.speed, "Play at this many times the speed of the recording")
      ->check(factor())
      ->excludes(timePerRead)
      ->type_name("FACTOR");
  command
      .add_option("--until", replay.until,
                  "End at this time of the recording, once what is due by then has come about")
      ->check(seconds())
      ->type_name("SECONDS");
  command.add_option("--stop-at", replay.stopAt, "End behind this line of the journal")
      ->check(wholeNumber(1, std::numeric_limits<std::uint64_t>::max()))
      ->type_name("LINE");
  addFilterOptions(command, options->output.filter);
  command.add_flag("--keep-going", replay.keepGoing,
                   "Print exceptions as lines of the output, and go on");
  addRunningOptions(command, options->running);
  commands["replay"] = [options](std::ostream& out, std::ostream& errors) -> int {
    auto& each = options->replay;
    OutputOptions& output = options->output;
    if (options->format == "json") output.format = Format::json;
    output.table.mostRows = options->rows == 0 ? TableOptions::all : options->rows;
    output.table.colours = wantsColours(options->colour);
    if (options->realtime && !each.speed) each.speed = 1;
    each.progress = isTerminal(STDERR_FILENO);
    each.maxProcessTime = options->running.maxProcessTime;
    Ringlog::directoryIs(options->running.ringDirectory);
    const int status =
        replayCommand(options->journals, each, output, options->running.traceLevel, out, errors);
    if (Ringlog::error().empty()) return status;
    errors << "vxlan-agent: " << Ringlog::error() << '\n';
    return status == ExitStatus::done ? ExitStatus::failed : status;
  };
}

}  // namespace Agent
