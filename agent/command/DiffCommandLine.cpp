#include "agent/command/DiffCommandLine.h"

#include <exception>
#include <memory>
#include <optional>
#include <ostream>

#include "agent/base/ExitStatus.h"
#include "agent/base/InputError.h"
#include "agent/command/DumpOptions.h"
#include "agent/live/ControlClient.h"
#include "agent/replay/EndState.h"
#include "agent/view/Diff.h"
#include "agent/view/DiffView.h"
#include "agent/view/JsonView.h"

namespace Agent {

namespace {

constexpr const char* help =
    "A and B are state journals, played to their ends, or what replay --format json\n"
    "or dump --format json has printed, of which the last dump counts; - is the\n"
    "standard input, agent the running agent, agent:PATH that at a control socket.\n"
    "The times of hosts, which differ from run to run, are not compared.\n\n"
    "  vxlan-agent diff before.jsonl after.jsonl\n"
    "  vxlan-agent diff --vni 10010 recording.jsonl agent\n"
    "  vxlan-agent dump --format json >then.json; vxlan-agent diff then.json agent\n\n"
    "Exit status: 0 they are the same; 1 they differ; 2 trouble; 64 wrong usage.";

// As of the command that compares files.
enum DiffStatus : int { same = 0, differs = 1, trouble = 2 };

struct DiffOptions {
  std::string before{};
  std::string after{};
  OutputOptions output{};
  CompareOptions compare{.times = false};
  bool keepGoing = false;
};

constexpr std::string_view agentPrefix = "agent:";

bool isAgent(const std::string& side) { return side == "agent" || side.starts_with(agentPrefix); }

// What a side has, as far as the filter admits it. Nothing if a replay has failed.
std::optional<Snapshot> stateOf(const std::string& side, const DiffOptions& options,
                                std::ostream& errors) {
  const Filter& filter = options.output.filter;
  if (isAgent(side))
    return askForDump(side == "agent" ? "" : side.substr(agentPrefix.size()), filter);
  auto state = endState(side, options.keepGoing, errors);
  if (state && !state->filter.empty() && state->filter != filter)
    throw InputError(state->origin.source + " has only what is of " + textOf(state->filter) +
                     ": expected all, or the same filter here");
  if (state) filterBy(filter, *state);
  return state;
}

int diff(const DiffOptions& options, std::ostream& out, std::ostream& errors) {
  const auto before = stateOf(options.before, options, errors);
  const auto after = stateOf(options.after, options, errors);
  if (!before || !after) return trouble;
  const Diff diff = compare(&*before, *after, options.compare);
  if (options.output.format == Format::json)
    printJson(out, diff);
  else
    printTable(out, diff, options.output.table);
  out.flush();
  return diff.empty() ? same : differs;
}

}  // namespace

void addDiff(CLI::App& program, std::map<std::string, Command>& commands) {
  auto options = std::make_shared<DiffOptions>();
  CLI::App& command =
      *program.add_subcommand("diff", "Compare ends of recordings, and the running agent");
  command.footer(help);
  command.add_option("A", options->before, "What was")->required();
  command.add_option("B", options->after, "What differs from it")->required();
  addDumpOptions(command, options->output);
  command.add_flag("--times", options->compare.times, "Compare the times of hosts, too");
  command.add_flag("--keep-going", options->keepGoing, "Play a journal on behind exceptions");
  commands["diff"] = [options](std::ostream& out, std::ostream& errors) -> int {
    if (options->before == "-" && options->after == "-") {
      errors << "vxlan-agent: A and B are both -: expected the standard input once\n";
      return ExitStatus::wrongUsage;
    }
    try {
      return diff(*options, out, errors);
    } catch (const std::exception& error) {
      errors << "vxlan-agent: " << error.what() << '\n';
      out.exceptions(std::ios::goodbit);  // what cannot be written is told once
      return trouble;
    }
  };
}

}  // namespace Agent
