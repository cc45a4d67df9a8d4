#include "agent/view/Diff.h"

namespace Agent {

namespace {

struct Equal {
  const CompareOptions& options;

  template <class Record>
  bool operator()(const Record& left, const Record& right) const {
    if constexpr (requires { left.time; })
      if (!options.times) {
        Record sameTime = left;
        sameTime.time = right.time;
        return sameTime == right;
      }
    return left == right;
  }
};

// Walks both sorted lists side by side; keyOf(record) is what they are sorted by.
template <class Record, class KeyOf>
ListChanges<Record> compareLists(const std::vector<Record>& before,
                                 const std::vector<Record>& after, KeyOf keyOf, Equal equal) {
  ListChanges<Record> changes;
  auto old = before.begin();
  auto now = after.begin();
  while (old != before.end() || now != after.end()) {
    if (now == after.end() || (old != before.end() && keyOf(*old) < keyOf(*now))) {
      changes.gone.push_back(*old++);
    } else if (old == before.end() || keyOf(*now) < keyOf(*old)) {
      changes.added.push_back(*now++);
    } else {
      if (!equal(*old, *now)) changes.changed.push_back({*old, *now});
      ++old;
      ++now;
    }
  }
  return changes;
}

// An absent list counts as an empty one, and is not copied to be compared.
template <class Record, class KeyOf>
ListChanges<Record> compareLists(const std::optional<std::vector<Record>>& before,
                                 const std::optional<std::vector<Record>>& after, KeyOf keyOf,
                                 Equal equal) {
  const std::vector<Record> none;
  return compareLists(before ? *before : none, after ? *after : none, keyOf, equal);
}

template <class Part>
std::optional<bool> flagOf(const std::optional<Part>& part, bool Part::*flag) {
  return part ? std::optional((*part).*flag) : std::nullopt;
}

// The flags of a snapshot; always the same ones, in the same order.
std::vector<std::pair<std::string_view, std::optional<bool>>> flagsOf(const Snapshot& snapshot) {
  const auto& client = snapshot.client;
  const auto& status = snapshot.convergenceStatus;
  return {
      {"clientRunning", client.has_value()},
      {"vxlanControllerClientMode", flagOf(client, &ClientSnapshot::vxlanControllerClientMode)},
      {"datapathLearningMode", flagOf(client, &ClientSnapshot::datapathLearningMode)},
      {"mlagBum", flagOf(client, &ClientSnapshot::mlagBum)},
      {"convergenceInProgress", snapshot.convergenceInProgress},
      {"unicastDeferredDeletionInProgress",
       flagOf(status, &ConvergenceSnapshot::unicastDeferredDeletionInProgress)},
      {"bumDeferredDeletionInProgress",
       flagOf(status, &ConvergenceSnapshot::bumDeferredDeletionInProgress)},
  };
}

std::vector<FlagChange> compareFlags(const Snapshot* before, const Snapshot& after) {
  std::vector<FlagChange> changes;
  const auto flags = flagsOf(after);
  const auto former = before != nullptr ? flagsOf(*before) : decltype(flags)(flags.size());
  for (std::size_t i = 0; i < flags.size(); ++i)
    if (former[i].second != flags[i].second)
      changes.push_back({flags[i].first, former[i].second, flags[i].second});
  return changes;
}

}  // namespace

bool Diff::empty() const {
  return flags.empty() && vccImportVlans.empty() && vnis.empty() && received.empty() &&
         hosts.empty() && floodSets.empty();
}

Diff compare(const Snapshot* before, const Snapshot& after, const CompareOptions& options) {
  const Snapshot nothing;
  const ClientSnapshot noClient;
  const Snapshot& old = before != nullptr ? *before : nothing;
  const ClientSnapshot& oldClient = old.client ? *old.client : noClient;
  const ClientSnapshot& client = after.client ? *after.client : noClient;
  const auto itself = [](const auto& record) { return record; };
  const auto key = [](const auto& record) { return record.key; };

  const Equal equal{options};

  Diff diff{.now = {after.label, after.at, after.origin}, .filter = after.filter};
  if (before != nullptr) diff.since = DumpId{before->label, before->at, before->origin};
  diff.flags = compareFlags(before, after);
  diff.vccImportVlans =
      compareLists(oldClient.vccImportVlans, client.vccImportVlans, itself, equal);
  diff.vnis = compareLists(oldClient.vnis, client.vnis, itself, equal);
  diff.received = compareLists(oldClient.hostTable.entries, client.hostTable.entries, key, equal);
  diff.hosts = compareLists(old.hosts, after.hosts, key, equal);
  diff.floodSets = compareLists(
      old.floodSets, after.floodSets, [](const auto& each) { return each.key(); }, equal);
  return diff;
}

}  // namespace Agent
