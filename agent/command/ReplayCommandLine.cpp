#include "agent/command/ReplayCommandLine.h"

#include <limits>
#include <memory>
#include <ostream>
#include <unistd.h>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/command/CommandLine.h"
#include "agent/command/DumpOptions.h"
#include "agent/command/ReportCommandLine.h"
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
    RunningOptions running;
    std::string report;
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
  addDumpOptions(command, options->output);
  command.add_flag("--diff", options->output.diff,
                   "Dumps show only what has changed since the last");
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
  command.add_flag("--keep-going", replay.keepGoing,
                   "Print exceptions as lines of the output, and go on");
  command
      .add_option("--report", options->report,
                  "Write a page that shows the replay, for a browser; of one journal alone")
      ->type_name("FILE");
  command.callback([options] {
    if (!options->report.empty() && options->journals.size() > 1)
      throw CLI::ValidationError("--report", "several journals: expected one");
  });
  addRunningOptions(command, options->running);
  commands["replay"] = [options](std::ostream& out, std::ostream& errors) -> int {
    auto& each = options->replay;
    if (options->realtime && !each.speed) each.speed = 1;
    each.progress = isTerminal(STDERR_FILENO);
    each.maxProcessTime = options->running.maxProcessTime;
    if (!options->report.empty())
      each.watching = reportTo(options->report, options->journals.front());
    Ringlog::directoryIs(options->running.ringDirectory);
    const int status = replayCommand(options->journals, each, options->output,
                                     traceOptions(options->running), out, errors);
    if (Ringlog::error().empty()) return status;
    errors << "vxlan-agent: " << Ringlog::error() << '\n';
    return status == ExitStatus::done ? ExitStatus::failed : status;
  };
}

}  // namespace Agent
