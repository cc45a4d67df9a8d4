#include "agent/command/RunningOptions.h"

#include "agent/command/CommandLine.h"

namespace Agent {

void addRunningOptions(CLI::App& command, RunningOptions& options) {
  command
      .add_option("--max-process-time", options.maxProcessTime,
                  "Seconds that a batch of deferred deletion may take; 0.01 if not given")
      ->check(seconds())
      ->type_name("SECONDS");
  command
      .add_flag("--trace{8}", options.traceLevel,
                "Trace the levels 0 to LEVEL (8 if not given) on standard error")
      ->check(wholeNumber(0, 9))
      ->type_name("LEVEL");
  const auto takeFormat = [&options](const std::string& format) {
    options.traceJson = format == "json";
  };
  command
      .add_option_function<std::string>("--trace-format", takeFormat,
                                        "Of the trace: text (the default), or json")
      ->check(oneOf({"text", "json"}))
      ->type_name("FORMAT");
  command
      .add_option("--ring", options.ringDirectory,
                  "Directory for the trace ring file; none is written if not given")
      ->check(CLI::Validator(CLI::ExistingDirectory).description(""))
      ->type_name("DIRECTORY");
}

std::optional<TraceStreamOptions> traceOptions(const RunningOptions& options) {
  if (!options.traceLevel) return std::nullopt;
  return TraceStreamOptions{*options.traceLevel, options.traceJson};
}

}  // namespace Agent
