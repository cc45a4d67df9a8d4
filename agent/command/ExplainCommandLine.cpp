#include "agent/command/ExplainCommandLine.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "agent/command/CommandLine.h"
#include "agent/live/ControlClient.h"
#include "agent/replay/Explain.h"
#include "model/Bridging/VlanId.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

void addExplain(CLI::App& program, std::map<std::string, Command>& commands) {
  struct Options {
    std::string mac;
    std::optional<std::uint16_t> vlan;
    std::optional<std::uint32_t> vni;
    std::vector<std::string> files;
    ExplainOptions explain;
    std::string format = "text";
    std::string control;
  };
  auto options = std::make_shared<Options>();
  CLI::App& command =
      *program.add_subcommand("explain", "What happened to a MAC, and why it is where it is");
  command.footer(
      "Of a recording, of a trace ring file, or else of the running agent. A line an\n"
      "event, the oldest first; then where it is now, or what keeps it from there.\n\n"
      "  vxlan-agent explain 02:00:00:00:00:07 recording.jsonl\n"
      "  vxlan-agent explain 02:00:00:00:00:07 --previous DpxVxlanControllerSm.rlg\n"
      "  vxlan-agent explain 02:00:00:00:00:07 --vni 10010\n\n" +
      std::string(exitCodes));
  command.add_option("MAC", options->mac, "The MAC address")->required()->check(macAddress());
  auto* const file =
      command.add_option("FILE", options->files,
                         "A recording, - being the standard input, or trace rings of an agent");
  command.add_option("--vlan", options->vlan, "In this VLAN alone")
      ->check(wholeNumber(Bridging::VlanId::min, Bridging::VlanId::max))
      ->type_name("NUMBER");
  command.add_option("--vni", options->vni, "In this VNI alone")
      ->check(wholeNumber(1, Vxlan::VniExt::max))
      ->type_name("NUMBER");
  command
      .add_flag("--previous", options->explain.previous,
                "Also the rings that stood under the name before (NAME.prev*)")
      ->needs(file);
  command.add_option("--format", options->format, "text or json, an object a line")
      ->check(oneOf({"text", "json"}))
      ->type_name("FORMAT")
      ->capture_default_str();
  command
      .add_option("--control", options->control,
                  "The agent's control socket; needed where several agents run")
      ->type_name("PATH")
      ->excludes(file);
  commands["explain"] = [options](std::ostream& out, std::ostream& errors) -> int {
    ExplainOptions& explain = options->explain;
    explain.mac = *Vorn::EthAddr::parse(options->mac);
    explain.json = options->format == "json";
    if (options->vlan) explain.filter.vlans.insert(Bridging::VlanId(*options->vlan));
    if (options->vni) explain.filter.vnis.insert(Vxlan::VniExt(*options->vni));
    if (!options->files.empty()) return Agent::explain(options->files, explain, out, errors);
    AskOptions question{.control = options->control, .what = "explain"};
    question.output.filter = explain.filter;
    question.output.filter.macs.insert(explain.mac);
    if (explain.json) question.output.format = Format::json;
    return ask(question, out);
  };
}

}  // namespace Agent
