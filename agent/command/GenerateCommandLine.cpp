#include "agent/command/GenerateCommandLine.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>

#include "agent/base/ExitStatus.h"
#include "agent/command/CommandLine.h"
#include "agent/journal/Generate.h"

namespace Agent {

void addGenerate(CLI::App& program, std::map<std::string, Command>& commands) {
  auto options = std::make_shared<GenerateOptions>();
  using Limits = GenerateOptions;
  CLI::App& command = *program.add_subcommand("generate", "Make a journal of any size");
  command.footer("  vxlan-agent generate --vnis 1000 --hosts 1000 | vxlan-agent replay -");
  const auto add = [&command](const std::string& name, auto& number, const std::string& what,
                              std::uint64_t least, std::uint64_t most) {
    command.add_option(name, number, what)
        ->check(wholeNumber(least, most))
        ->type_name("NUMBER")
        ->capture_default_str();
  };
  add("--vnis", options->vnis, "VNIs, each with a VLAN of its own", 1, Limits::maxVnis);
  add("--hosts", options->hostsPerVni, "Hosts of each VNI", 0, Limits::maxHostsPerVni);
  add("--vteps", options->vteps, "Remote VTEPs", 1, Limits::maxVteps);
  add("--moves", options->moves, "Moves of hosts", 0, std::numeric_limits<std::uint64_t>::max());
  add("--restarts", options->restarts, "Restarts of the controller", 0,
      std::numeric_limits<std::uint32_t>::max());
  add("--seed", options->seed, "Another seed, another journal", 0,
      std::numeric_limits<std::uint64_t>::max());
  commands["generate"] = [options](std::ostream& out, std::ostream&) -> int {
    generate(*options, out);
    return ExitStatus::done;
  };
}

}  // namespace Agent
