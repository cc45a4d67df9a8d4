#include "agent/Check.h"

#include "agent/Lifecycle.h"
#include "agent/StateStore.h"
#include "framework/Moru/Exception.h"

namespace Agent {

CheckResult check(JournalFile& file, const Report& report) {
  Journal journal(file.stream(), file.name());
  return check(journal, file.hasStart(), report);
}

CheckResult check(Journal& journal, bool hasStart, const Report& report) {
  Lifecycle lifecycle(hasStart);
  StateStore store;  // some lines are wrong only after others
  CheckResult result;
  for (;;) {
    try {
      const auto line = journal.next();
      if (!line) return result;
      lifecycle.follow(line->action);
      if (const auto* change = std::get_if<Change>(&line->action)) store.apply(*change);
      ++result.lines;
    } catch (const JournalError& error) {
      ++result.malformed;
      report(journal.place() + ": " + error.what());
    } catch (const Moru::Exception& error) {
      ++result.refused;
      report(journal.place() + ": " + error.type() + ": " + error.what());
    }
  }
}

}  // namespace Agent
