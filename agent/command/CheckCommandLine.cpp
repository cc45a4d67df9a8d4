#include "agent/command/CheckCommandLine.h"

#include <memory>
#include <ostream>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/journal/Check.h"
#include "agent/journal/Journal.h"
#include "agent/journal/JournalFile.h"

namespace Agent {

void addCheck(CLI::App& program, std::map<std::string, Command>& commands) {
  auto journals = std::make_shared<std::vector<std::string>>();
  CLI::App& command = *program.add_subcommand("check", "Validate journals without running them");
  command.footer("Exit status 1 if a line is malformed, else 2 if a value is refused.");
  command.add_option("JOURNAL", *journals, "State journals; - is the standard input")->required();
  commands["check"] = [journals](std::ostream& out, std::ostream& errors) -> int {
    CheckResult sum;
    for (const std::string& path : *journals) {
      JournalFile file(path);
      Journal journal(file.stream(), file.name());
      const auto result = check(journal, [&](const std::string& what) { errors << what << '\n'; });
      out << file.name() << ": " << result.lines << " good lines, " << result.malformed
          << " malformed, " << result.refused << " refused\n";
      sum.malformed += result.malformed;
      sum.refused += result.refused;
    }
    if (sum.malformed != 0) return ExitStatus::failed;
    return sum.refused != 0 ? ExitStatus::refused : ExitStatus::done;
  };
}

}  // namespace Agent
