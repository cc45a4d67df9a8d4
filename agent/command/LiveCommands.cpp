#include "agent/command/LiveCommands.h"

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

#include "agent/base/ExitStatus.h"
#include "agent/base/InputError.h"
#include "agent/base/Text.h"
#include "agent/command/CommandLine.h"
#include "agent/command/DumpOptions.h"
#include "agent/command/RunningOptions.h"
#include "agent/live/ControlClient.h"
#include "agent/live/LiveAgent.h"
#include "agent/metrics/ScrapeServer.h"
#include "agent/netlink/Requests.h"
#include "agent/trace/TraceStream.h"
#include "framework/Ringlog/Ring.h"

namespace Agent {

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

constexpr const char* defaultDataPlane = "linux";

struct RunOptions {
  LiveOptions live{};
  RunningOptions running{};
  std::string database{};
  std::string dataPlane = defaultDataPlane;
  std::string metrics{};
  std::string links = "manage";
};

// Takes what `parse` does not throw an InputError for.
template <class Parse>
CLI::Validator parsedBy(Parse parse) {
  const auto complaint = [parse](const std::string& text) -> std::string {
    try {
      parse(text);
      return "";
    } catch (const InputError& error) {
      return error.what();
    }
  };
  return {complaint, ""};
}

void addDatabaseOptions(CLI::App& command, RunOptions& options) {
  command
      .add_option("--database", options.database,
                  "unix:PATH, tcp:HOST:PORT or ssl:HOST:PORT; the members of a cluster with commas "
                  "between them")
      ->required()
      ->check(parsedBy(Ovsdb::parseRemotes))
      ->type_name("REMOTE");
  command
      .add_option("--switch", options.live.switchName,
                  "The Physical_Switch row that is us; it is waited for")
      ->required()
      ->type_name("NAME");
  auto& tls = options.live.database.tls;
  command.add_option("--private-key", tls.privateKey, "Ours, for ssl:")->type_name("FILE");
  command.add_option("--certificate", tls.certificate, "Ours, for ssl:")->type_name("FILE");
  command.add_option("--ca-cert", tls.caCertificate, "Who signs the server's, for ssl:")
      ->type_name("FILE");
}

void addGateOptions(CLI::App& command, GateOptions& gate) {
  const auto addSeconds = [&command](const char* name, double& number, const char* what) {
    command.add_option(name, number, what)
        ->check(seconds())
        ->type_name("SECONDS")
        ->capture_default_str();
  };
  addSeconds("--withdraw-delay", gate.withdrawDelay,
             "How long a withdrawal waits for its re-announcement; 0 is not at all");
  command
      .add_option("--hold-above", gate.holdAbove,
                  "The share of all hosts that must wait to be withdrawn for a hold to begin")
      ->check(share())
      ->type_name("SHARE")
      ->capture_default_str();
  command.add_option("--hold-min", gate.holdMin, "And the number of hosts")
      ->check(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("NUMBER")
      ->capture_default_str();
  addSeconds("--hold-time", gate.holdTime, "After which a hold ends by itself; 0 is never");
  addSeconds("--settle", gate.settle,
             "Without a change, after which a controller that is back counts as converged");
}

void addOutputOptions(CLI::App& command, RunOptions& options) {
  command
      .add_option("--data-plane", options.dataPlane,
                  "linux: programs the kernel with what it decides; none: decides and shows alone")
      ->check(oneOf({"linux", "none"}))
      ->type_name("WHICH")
      ->capture_default_str();
  command
      .add_option(
          "--links", options.links,
          "Of the kernel; manage: makes a vxlan device for each VNI, and bridges where they "
          "lack; adopt: makes and changes none, and uses those that are there")
      ->check(oneOf({"manage", "adopt"}))
      ->type_name("HOW")
      ->capture_default_str();
  command
      .add_option("--record", options.live.recording.file,
                  "Record all that is applied, as a state journal for replay")
      ->type_name("FILE");
  command
      .add_option("--record-size", options.live.recording.largest,
                  "MiB after which a new recording is begun; the last three are kept as FILE.1 to "
                  "FILE.3. 0 is never")
      ->check(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("MIB")
      ->capture_default_str();
  command
      .add_option("--control", options.live.control,
                  std::string("The socket for status and the like; ") + controlDirectory +
                      "/NAME.sock if not given")
      ->type_name("PATH");
  command
      .add_option("--metrics", options.metrics,
                  "Serve metrics at this address, path /metrics; PORT alone is on 127.0.0.1")
      ->check(parsedBy(Metrics::parseEndpoint))
      ->type_name("HOST:PORT");
}

int run(RunOptions options, std::ostream& errors) {
  LiveOptions& live = options.live;
  live.database.remotes = Ovsdb::parseRemotes(options.database);
  live.programsKernel = options.dataPlane == "linux";
  live.managesLinks = options.links == "manage";
  live.maxProcessTime = options.running.maxProcessTime;
  live.recording.largest *= mebibyte;
  live.version = VXLAN_VERSION;
  if (!options.metrics.empty()) live.metrics = Metrics::parseEndpoint(options.metrics);
  if (live.control.empty())
    live.control = std::string(controlDirectory) + '/' + live.switchName + ".sock";
  Log log(errors, Log::readsJournal(STDERR_FILENO));
  Ringlog::directoryIs(options.running.ringDirectory);
  std::optional<TraceStream> trace;
  if (const auto wanted = traceOptions(options.running))
    trace.emplace(errors, *wanted, clientFacilities(), [] {
      return TraceMoment{.time = rfc3339Text(std::chrono::system_clock::now())};
    });
  try {
    LiveAgent agent(std::move(live), log);
    return ExitStatus::signalled + agent.run();
  } catch (const Netlink::NotPermitted& error) {
    errors << "vxlan-agent: " << error.what() << '\n';
    return ExitStatus::notPermitted;
  }
}

Command addRun(CLI::App& program) {
  auto options = std::make_shared<RunOptions>();
  CLI::App& command =
      *program.add_subcommand("run", "Follow a network controller's database, live");
  command.footer(
      "A database that is not there is waited for, and when it is lost, all stays as\n"
      "it is.\n\n"
      "  vxlan-agent run --database unix:/run/openvswitch/db.sock --switch tor1\n"
      "  vxlan-agent run --config /etc/vxlan-agent/tor1.toml\n\n" +
      std::string(exitCodes));
  addDatabaseOptions(command, *options);
  addGateOptions(command, options->live.gate);
  addOutputOptions(command, *options);
  addRunningOptions(command, options->running);
  addConfigFile(command);
  return [options](std::ostream&, std::ostream& errors) { return run(*options, errors); };
}

constexpr const char* doctorHelp =
    "A line a difference between what the database says, what the client has decided\n"
    "and what the kernel has, read anew, with its reason: waiting in the gate, held,\n"
    "marked, refused, foreign, behind our own VTEP, or waiting to be programmed. Exit\n"
    "status 1 as well if one has none.\n\n";

Command addQuestion(CLI::App& program, const std::string& name, const std::string& what) {
  auto options = std::make_shared<AskOptions>();
  options->what = name;
  CLI::App& command = *program.add_subcommand(name, what);
  command.footer((name == "doctor" ? doctorHelp : "") + std::string(exitCodes));
  if (name == "hosts") addMacArgument(command, options->output.filter);
  if (name == "hosts" || name == "floods") addFilterOptions(command, options->output.filter);
  if (name == "dump")
    addDumpOptions(command, options->output);
  else
    addFormatOption(command, options->output.format);
  addControlOption(command, options->control);
  return [options](std::ostream& out, std::ostream&) { return ask(*options, out); };
}

}  // namespace

void addControlOption(CLI::App& command, std::string& control) {
  command
      .add_option("--control", control,
                  "The agent's control socket; needed where several agents run")
      ->type_name("PATH");
}

void addLiveCommands(CLI::App& program, std::map<std::string, Command>& commands) {
  commands["run"] = addRun(program);
  const std::pair<const char*, const char*> questions[] = {
      {"status", "How the running agent is"},
      {"hosts", "The hosts that the running agent has decided on"},
      {"floods", "Its flood sets"},
      {"dump", "All that it has made, as a dump"},
      {"problems", "What is wrong with what it is given"},
      {"doctor", "What differs between database, client and kernel"},
      {"release", "End a hold of the running agent"}};
  for (const auto& [name, what] : questions) commands[name] = addQuestion(program, name, what);
}

}  // namespace Agent
