#include "agent/command/CheckCommandLine.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/base/JsonText.h"
#include "agent/base/Text.h"
#include "agent/command/DumpOptions.h"
#include "agent/journal/Check.h"
#include "agent/journal/Journal.h"
#include "agent/journal/JournalFile.h"

namespace Agent {

namespace {

using Object = nlohmann::ordered_json;

struct CheckOptions {
  std::vector<std::string> journals{};
  Format format = Format::table;
};

std::string jsonLine(const std::string& journal, const Complaint& complaint) {
  return jsonText(Object{{"journal", journal},
                         {"line", complaint.line},
                         {complaint.malformed ? "malformed" : "refused", complaint.text}}) +
         '\n';
}

std::string jsonLine(const std::string& journal, const CheckResult& result) {
  const Object counts{
      {"good", result.lines}, {"malformed", result.malformed}, {"refused", result.refused}};
  return jsonText(Object{{"journal", journal}, {"lines", counts}}) + '\n';
}

CheckResult checkOne(const std::string& path, bool json, std::ostream& out, std::ostream& errors) {
  JournalFile file(path);
  Journal journal(file.stream(), file.name());
  const auto result = check(journal, [&](const Complaint& complaint) {
    if (json)
      out << jsonLine(file.name(), complaint);
    else
      errors << file.name() << ':' << complaint.line << ": " << printable(complaint.text) << '\n';
  });
  if (json)
    out << jsonLine(file.name(), result);
  else
    out << file.name() << ": " << result.lines << " good lines, " << result.malformed
        << " malformed, " << result.refused << " refused\n";
  return result;
}

}  // namespace

void addCheck(CLI::App& program, std::map<std::string, Command>& commands) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App& command = *program.add_subcommand("check", "Validate journals without running them");
  command.footer("Exit status 1 if a line is malformed, else 2 if a value is refused.");
  command.add_option("JOURNAL", options->journals, "State journals; - is the standard input")
      ->required();
  addFormatOption(command, options->format);
  commands["check"] = [options](std::ostream& out, std::ostream& errors) -> int {
    CheckResult sum;
    for (const std::string& path : options->journals) {
      const CheckResult each = checkOne(path, options->format == Format::json, out, errors);
      sum.malformed += each.malformed;
      sum.refused += each.refused;
    }
    if (sum.malformed != 0) return ExitStatus::failed;
    return sum.refused != 0 ? ExitStatus::refused : ExitStatus::done;
  };
}

}  // namespace Agent
