#include "agent/replay/Explain.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/base/JsonText.h"
#include "agent/base/StopSignal.h"
#include "agent/base/Text.h"
#include "agent/replay/Replay.h"
#include "agent/story/StoryView.h"

namespace Agent {

namespace {

void print(std::ostream& out, const ExplainOptions& options, const std::vector<StoryLine>& lines,
           const std::vector<Finding>& findings, double now) {
  if (!options.json) {
    printStory(out, options.mac, lines);
    printVerdict(out, findings, now);
    return;
  }
  for (const StoryLine& line : lines) out << jsonText(jsonOf(line)) << '\n';
  for (const Finding& finding : findings)
    out << jsonText(jsonOf(finding, options.mac, now)) << '\n';
}

}  // namespace

ExitStatus explainJournal(const std::string& path, const ExplainOptions& options, std::ostream& out,
                          std::ostream& errors) {
  JournalFile file(path);
  const bool hasStart = file.findStart();
  StopSignal::install();
  std::vector<Event> events;
  ReplayOptions replayOptions;
  replayOptions.watching = {options.mac,
                            {.event = [&events](const Event& event) { events.push_back(event); }}};
  Replay replay(file, hasStart, replayOptions, nullptr, errors);
  const ExitStatus status = replay.run();
  const StoryScope scope = scopeOf(replay.embedded().store(), options.filter);
  print(out, options, storyOf(events, scope), verdictOn(replay.embedded(), options.mac, scope),
        replay.time());
  const bool isMentioned =
      std::ranges::any_of(events, [](const Event& event) { return hasMac(event.kind); });
  if (status != ExitStatus::done || isMentioned) return status;
  errors << printable(file.name()) << ": says nothing of " << options.mac << '\n';
  return ExitStatus::failed;
}

}  // namespace Agent
