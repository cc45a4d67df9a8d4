#include "agent/command/TraceCommandLine.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>

#include "agent/base/StopSignal.h"
#include "agent/base/Text.h"
#include "agent/command/CommandLine.h"
#include "agent/trace/TraceCommand.h"
#include "model/Bridging/VlanId.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

namespace {

struct Options {
  TraceOptions trace;
  std::string mac;
  std::string since;
  std::string until;
  bool follow = false;
  std::string format = "text";
};

CLI::Validator timeBound() {
  const auto complaint = [](const std::string& text) {
    return TimeBound::parse(text) ? ""
                                  : "\"" + printable(text) + "\": expected " + TimeBound::expected;
  };
  return {complaint, ""};
}

void addFilters(CLI::App& command, Options& options) {
  MessageFilterOptions& filter = options.trace.filter;
  command.add_option("--level", filter.mostLevel, "Messages of the levels 0 to N")
      ->check(wholeNumber(0, Ringlog::mostLevels - 1))
      ->type_name("NUMBER")
      ->capture_default_str();
  command
      .add_option("--grep", filter.grep,
                  "Messages in which this regular expression (of RE2) is found")
      ->type_name("REGEX");
  command.add_option("--mac", options.mac, "Messages that tell of this MAC address")
      ->check(macAddress())
      ->type_name("MAC");
  command.add_option("--vlan", filter.vlan, "Messages that tell of this VLAN")
      ->check(wholeNumber(Bridging::VlanId::min, Bridging::VlanId::max))
      ->type_name("VLAN");
  command.add_option("--vni", filter.vni, "Messages that tell of this VNI")
      ->check(wholeNumber(Vxlan::VniExt::min, Vxlan::VniExt::max))
      ->type_name("VNI");
  const auto addTime = [&command](const char* name, std::string& time, const char* what) {
    command.add_option(name, time, what)->check(timeBound())->type_name("TIME");
  };
  addTime("--since", options.since, "Messages from this time on");
  addTime("--until", options.until, "Messages up to this time");
}

void addView(CLI::App& command, Options& options) {
  constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
  command.add_option("--last", options.trace.last, "Only the last N of these messages")
      ->check(wholeNumber(1, largest))
      ->type_name("NUMBER");
  command.add_option("--context", options.trace.context, "N messages before and after each")
      ->check(wholeNumber(0, largest))
      ->type_name("NUMBER");
  command.add_flag("--previous", options.trace.previous,
                   "Also the files that stood under the name before (NAME.prev*)");
  command.add_flag("--full", options.trace.full, "Whole signatures of methods");
  command.add_flag("--follow", options.follow, "Go on with new messages until interrupted");
  command.add_option("--format", options.format, "text or json")
      ->check(oneOf({"text", "json"}))
      ->type_name("FORMAT")
      ->capture_default_str();
}

}  // namespace

void addTrace(CLI::App& program, std::map<std::string, Command>& commands) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *program.add_subcommand("trace", "Render trace ring files");
  command.footer(
      "The files may be of processes that run, have ended, or have crashed; several are\n"
      "merged by time. TIME is in UTC, as 2026-11-21T05:10:11.123Z or with less, or a\n"
      "time of the day of the last message, as 05:10. The context is of all levels.\n\n"
      "  vxlan-agent trace --mac 02:00:00:00:00:07 DpxVxlanControllerSm.rlg\n"
      "  vxlan-agent trace --since 05:10 --level 0 --context 20 --previous agent.rlg");
  command.add_option("FILE", options->trace.files, "The ring files; - is the standard input")
      ->required();
  addFilters(command, *options);
  addView(command, *options);
  commands["trace"] = [options](std::ostream& out, std::ostream& errors) {
    TraceOptions& trace = options->trace;
    trace.json = options->format == "json";
    trace.filter.mac = Vorn::EthAddr::parse(options->mac);
    trace.filter.since = TimeBound::parse(options->since);
    trace.filter.until = TimeBound::parse(options->until);
    if (options->follow) {
      StopSignal::install();
      trace.follow = pauseUntil(StopSignal::isSet());
    }
    return traceCommand(trace, out, errors);
  };
}

}  // namespace Agent
