#include "agent/replay/Explain.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/base/JsonText.h"
#include "agent/base/StopSignal.h"
#include "agent/base/Text.h"
#include "agent/replay/Replay.h"
#include "agent/story/StoryView.h"
#include "agent/trace/RingSource.h"
#include "agent/trace/RingStory.h"
#include "framework/Ringlog/Format.h"

namespace Agent {

namespace {

void show(std::ostream& out, const ExplainOptions& options, const Explanation& explanation,
          const StoryTimes& times = {}) {
  if (!options.json) return print(out, explanation, times);
  for (const auto& line : jsonOf(explanation, times)) out << jsonText(line) << '\n';
}

bool hasEventOf(const std::vector<Event>& events) {
  return std::ranges::any_of(events, [](const Event& event) { return hasMac(event.kind); });
}

ExitStatus saysNothing(std::ostream& errors, const std::string& file, const Vorn::EthAddr& mac) {
  errors << printable(file) << ": says nothing of " << mac << '\n';
  return ExitStatus::failed;
}

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
  show(out, options,
       {.mac = options.mac,
        .lines = storyOf(events, scope),
        .verdict = verdictOn(replay.embedded(), options.mac, scope),
        .now = replay.time()});
  if (status != ExitStatus::done || hasEventOf(events)) return status;
  return saysNothing(errors, file.name(), options.mac);
}

bool isRingFile(const std::string& path) {
  std::array<char, Ringlog::Format::magic.size()> begin{};
  std::ifstream(path, std::ios::binary).read(begin.data(), begin.size());
  return begin == Ringlog::Format::magic;
}

// A ring does not tell which VLANs a VNI is mapped to: what is not of the kind that is asked for is
// told.
StoryScope ringScope(const Filter& filter) {
  StoryScope scope;
  for (const Bridging::VlanId& vlan : filter.vlans) {
    if (!scope.vlans) scope.vlans.emplace();
    scope.vlans->insert(vlan.value());
  }
  for (const Vxlan::VniExt& vni : filter.vnis) {
    if (!scope.vnis) scope.vnis.emplace();
    scope.vnis->insert(vni.value());
  }
  return scope;
}

ExitStatus explainRings(const std::vector<std::string>& files, const ExplainOptions& options,
                        std::ostream& out, std::ostream& errors) {
  std::vector<Ringlog::Contents> rings;
  bool isDamaged = false;
  for (const std::string& path : options.previous ? withPredecessors(files) : files) {
    rings.push_back(readRing(path));
    for (const std::string& problem : rings.back().problems) {
      errors << printable(path) << ": problem: " << printable(problem) << '\n';
      isDamaged = true;
    }
  }
  RingStory story = ringStoryOf(rings, options.mac);
  const StoryScope scope = ringScope(options.filter);
  std::erase_if(story.verdict, [&scope](const Finding& each) {
    return !scope.has({.vlan = each.vlan, .vni = each.vni});
  });
  show(out, options,
       {.mac = options.mac,
        .remarks = story.remarks,
        .lines = storyOf(story.events, scope),
        .verdict = story.verdict,
        .now = story.now},
       ringTimes());
  if (isDamaged) return ExitStatus::refused;
  return hasEventOf(story.events) ? ExitStatus::done
                                  : saysNothing(errors, files.back(), options.mac);
}

}  // namespace

ExitStatus explain(const std::vector<std::string>& files, const ExplainOptions& options,
                   std::ostream& out, std::ostream& errors) {
  const auto rings = std::ranges::count_if(files, isRingFile);
  if (rings == static_cast<std::ptrdiff_t>(files.size()))
    return explainRings(files, options, out, errors);
  if (files.size() != 1) {
    errors << "several files: expected trace rings alone, or one recording\n";
    return ExitStatus::wrongUsage;
  }
  return explainJournal(files.front(), options, out, errors);
}

}  // namespace Agent
