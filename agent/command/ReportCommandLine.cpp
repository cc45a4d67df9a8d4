#include "agent/command/ReportCommandLine.h"

#include <filesystem>
#include <memory>
#include <utility>

#include "agent/base/ExitStatus.h"
#include "agent/command/LiveCommands.h"
#include "agent/live/ControlClient.h"
#include "agent/report/Page.h"
#include "agent/report/Recorder.h"

namespace Agent {

Watching reportTo(const std::string& file, const std::string& journal) {
  checkPagePlace(file);
  const bool isStandardInput = journal == "-";
  const ReportHead head{
      .title = isStandardInput ? "standard input" : std::filesystem::path(journal).filename(),
      .source = isStandardInput ? "JOURNAL" : journal,
      .version = VXLAN_VERSION};
  const auto recorder = std::make_shared<Recorder>();
  return {
      .sinks = {[recorder](const Event& event) { recorder->take(event); },
                [recorder](const Batch& batch) { recorder->take(batch); }},
      .turnEnded = [recorder](
                       const Witness::Moment& moment,
                       const EmbeddedClient& embedded) { recorder->turnEnded(moment, embedded); },
      .ended =
          [recorder, head, file](const Witness::Moment& moment, const EmbeddedClient& embedded) {
            recorder->turnEnded(moment, embedded);
            std::string data;
            const Pieces next = recorder->data(head, embedded);
            while (next(data)) {
            }
            writePage(file, data);
          }};
}

void addReport(CLI::App& program, std::map<std::string, Command>& commands) {
  struct Options {
    std::string file;
    std::string control;
  };
  auto options = std::make_shared<Options>();
  CLI::App& command =
      *program.add_subcommand("report", "A page, for a browser, of the running agent's time");
  command.footer(
      "It shows hosts, marks, floods, batches, moves, convergences and holds since the\n"
      "agent has started, and loads nothing. For a recording: replay --report FILE.\n\n"
      "  vxlan-agent report tor1.html\n\n" +
      std::string(exitCodes));
  command.add_option("FILE", options->file, "The page; one that is there is replaced")->required();
  addControlOption(command, options->control);
  commands["report"] = [options](std::ostream&, std::ostream&) -> int {
    checkPagePlace(options->file);
    writePage(options->file, askForReport(options->control));
    return ExitStatus::done;
  };
}

}  // namespace Agent
