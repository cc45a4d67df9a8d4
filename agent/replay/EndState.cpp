#include "agent/replay/EndState.h"

#include <istream>
#include <utility>

#include "agent/base/InputError.h"
#include "agent/base/StopSignal.h"
#include "agent/journal/JournalFile.h"
#include "agent/replay/Replay.h"
#include "agent/view/DumpReader.h"

namespace Agent {

namespace {

Snapshot lastDump(std::istream& in, const std::string& name) {
  std::optional<Snapshot> last;
  std::uint64_t number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (isSkipped(line)) continue;
    try {
      if (auto dump = readOutput(line)) last = std::move(dump);
    } catch (const InputError& error) {
      throw InputError(name + ':' + std::to_string(number) + ": " + error.what());
    }
  }
  if (!last) throw InputError(name + " has no dump: expected one, as a replay prints it");
  return *std::move(last);
}

}  // namespace

std::optional<Snapshot> endState(const std::string& path, bool keepGoing, std::ostream& errors) {
  JournalFile file(path);
  std::optional<Snapshot> end;
  if (isOutput(file.firstLine())) {
    end = lastDump(file.stream(), file.name());
  } else {
    const bool hasStart = file.findStart();
    Replay replay(file, hasStart, {.keepGoing = keepGoing}, nullptr, errors);
    const ExitStatus status = replay.run();
    if (status == ExitStatus::done || (status == ExitStatus::refused && keepGoing))
      end = replay.snapshot("end");
  }
  if (end) end->origin.source = file.name();
  return end;
}

}  // namespace Agent
