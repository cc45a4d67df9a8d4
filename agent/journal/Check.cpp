#include "agent/journal/Check.h"

#include <optional>
#include <utility>
#include <vector>

#include "agent/journal/Lifecycle.h"
#include "agent/store/StateStore.h"
#include "framework/Moru/Exception.h"

namespace Agent {

namespace {

// What is said of a line; nothing of a good one.
using Verdict = std::optional<Complaint>;

Verdict followed(Lifecycle& lifecycle, const Line& line) {
  try {
    lifecycle.follow(line.action);
    return std::nullopt;
  } catch (const InputError& error) {
    return Complaint{line.number, true, error.what()};
  }
}

// Whether a client runs before the first start line is known once that comes, or once the journal
// has ended without one. Until then what would differ is put off, and what is wrong behind it.
class Verdicts {
 public:
  explicit Verdicts(const Report& report) : report_(report) {}

  void add(const Verdict& verdict) { add(verdict, verdict); }

  void add(const Verdict& ifStart, const Verdict& ifNone) {
    const bool isGood = !ifStart && !ifNone;
    const bool isOpen = !isDecided_ && (!putOff_.empty() || ifStart != ifNone);
    if (isOpen && !isGood)
      putOff_.emplace_back(ifStart, ifNone);
    else
      tell(ifStart);
  }

  void decide(bool hasStart) {
    isDecided_ = true;
    for (const auto& [ifStart, ifNone] : std::exchange(putOff_, {}))
      tell(hasStart ? ifStart : ifNone);
  }

  const CheckResult& result() const { return result_; }

 private:
  void tell(const Verdict& verdict) {
    if (!verdict) {
      ++result_.lines;
      return;
    }
    ++(verdict->malformed ? result_.malformed : result_.refused);
    report_(*verdict);
  }

  const Report& report_;
  CheckResult result_;
  bool isDecided_ = false;
  std::vector<std::pair<Verdict, Verdict>> putOff_;
};

}  // namespace

CheckResult check(Journal& journal, const Report& report) {
  Verdicts verdicts(report);
  Lifecycle ifStart(true);
  Lifecycle ifNone(false);
  StateStore store;  // some lines are wrong only after others
  for (;;) {
    try {
      const auto line = journal.next();
      if (!line) break;
      if (std::holds_alternative<Start>(line->action)) verdicts.decide(true);
      if (const auto* change = std::get_if<Change>(&line->action)) store.apply(*change);
      verdicts.add(followed(ifStart, *line), followed(ifNone, *line));
    } catch (const InputError& error) {
      verdicts.add(Complaint{journal.number(), true, error.what()});
    } catch (const Moru::Exception& error) {
      verdicts.add(
          Complaint{journal.number(), false, error.type() + std::string(": ") + error.what()});
    }
  }
  verdicts.decide(false);
  return verdicts.result();
}

}  // namespace Agent
