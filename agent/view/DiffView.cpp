#include "agent/view/DiffView.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Text.h"
#include "agent/view/FloodSetText.h"

namespace Agent {

namespace {

const Vorn::IpGenAddr& vtepOf(const Vxlan::ReceivedEntry& entry) { return entry.vtepAddr; }
Vorn::IpGenAddr vtepOf(const L2Rib::Host& host) { return host.dest.vtepAddr(0); }

bool isMarked(const Vxlan::ReceivedEntry& entry) { return entry.markedForDel; }
bool isMarked(const L2Rib::Host&) { return false; }

// What is counted of the changes, and told of each.
struct HostChange {
  bool moved;
  bool marked;
  bool unmarked;

  bool isOther() const { return !moved && !marked && !unmarked; }
};

template <class Record>
HostChange changeOf(const Changed<Record>& change) {
  const auto& [before, after] = change;
  return {vtepOf(before) != vtepOf(after), !isMarked(before) && isMarked(after),
          isMarked(before) && !isMarked(after)};
}

template <class Record>
std::string changeText(const Changed<Record>& change) {
  const HostChange what = changeOf(change);
  std::string text;
  if (what.moved) appendTo(text, ", ", "moved from " + vtepOf(change.before).stringValue());
  if (what.marked) appendTo(text, ", ", "newly marked");
  if (what.unmarked) appendTo(text, ", ", "no longer marked");
  if (change.before.moveCount != change.after.moveCount)
    appendTo(text, ", ",
             "moves " + std::to_string(change.before.moveCount) + " to " +
                 std::to_string(change.after.moveCount));
  return text.empty() ? "changed otherwise" : text;
}

template <class Record>
std::string summary(const ListChanges<Record>& changes) {
  std::size_t moved = 0;
  std::size_t marked = 0;
  std::size_t unmarked = 0;
  std::size_t other = 0;
  for (const Changed<Record>& change : changes.changed) {
    const HostChange what = changeOf(change);
    if (what.moved) ++moved;
    if (what.marked) ++marked;
    if (what.unmarked) ++unmarked;
    if (what.isOther()) ++other;
  }
  std::string text;
  const auto count = [&text](std::size_t number, const char* what) {
    if (number > 0) appendTo(text, ", ", std::to_string(number) + ' ' + what);
  };
  count(changes.added.size(), "added");
  count(changes.gone.size(), "gone");
  count(moved, "moved");
  count(marked, "newly marked");
  count(unmarked, "no longer marked");
  count(other, "changed otherwise");
  return text;
}

std::string summary(const ListChanges<VlanFloodSetSnapshot>& changes) {
  return std::to_string(changes.added.size()) + " added, " + std::to_string(changes.gone.size()) +
         " gone, " + std::to_string(changes.changed.size()) + " changed";
}

template <class Record>
std::vector<std::string> cellsOf(const Record& host) {
  return {host.key.mac.stringValue(), std::to_string(host.key.vlan.value()),
          vtepOf(host).stringValue()};
}

std::vector<std::string> cellsOf(const VlanFloodSetSnapshot& each) {
  if (!each.floodSet) return {std::to_string(each.vlan.value()), "none", "", ""};
  return {std::to_string(each.vlan.value()), each.floodSet->mac.stringValue(),
          typeText(each.floodSet->type), destsText(*each.floodSet)};
}

// Two flood sets of the same MAC.
std::string changeText(const Changed<VlanFloodSetSnapshot>& change) {
  const FloodSetSnapshot& before = *change.before.floodSet;
  return "was " + typeText(before.type) + ' ' + destsText(before);
}

// A row of the printed table: one of the three is set.
template <class Record>
struct Row {
  const Record* added = nullptr;
  const Record* gone = nullptr;
  const Changed<Record>* changed = nullptr;
};

// Which of the kinds of change it counts among, as the summary names them.
template <class Record>
std::size_t kindOf(const Changed<Record>& change) {
  const HostChange what = changeOf(change);
  return what.moved ? 0 : what.marked ? 1 : what.unmarked ? 2 : 3;
}

std::size_t kindOf(const Changed<VlanFloodSetSnapshot>&) { return 0; }

// Kind by kind. The first `most` have some of each: no kind is crowded out by those before it.
template <class Record>
std::vector<Row<Record>> rowsOf(const ListChanges<Record>& changes, std::size_t most) {
  std::array<std::vector<Row<Record>>, 6> kinds;
  for (const Record& each : changes.added) kinds[0].push_back({.added = &each});
  for (const Record& each : changes.gone) kinds[1].push_back({.gone = &each});
  for (const Changed<Record>& each : changes.changed)
    kinds[2 + kindOf(each)].push_back({.changed = &each});

  std::size_t all = 0;
  for (const auto& kind : kinds) all += kind.size();
  std::array<std::size_t, kinds.size()> shares{};
  for (std::size_t left = std::min(most, all), i = 0; left > 0; i = (i + 1) % kinds.size()) {
    if (shares[i] == kinds[i].size()) continue;
    ++shares[i];
    --left;
  }

  std::vector<Row<Record>> rows;
  rows.reserve(all);
  for (std::size_t i = 0; i < kinds.size(); ++i)
    rows.insert(rows.end(), kinds[i].begin(), kinds[i].begin() + shares[i]);
  for (std::size_t i = 0; i < kinds.size(); ++i)
    rows.insert(rows.end(), kinds[i].begin() + shares[i], kinds[i].end());
  return rows;
}

template <class Record>
void addRow(TextTable& table, const Row<Record>& row, bool colours) {
  const auto add = [&](const char* sign, const Record& record, const std::string& text,
                       Colour colour) {
    std::vector<std::string> cells = cellsOf(record);
    cells.insert(cells.begin(), sign);
    cells.push_back(text);
    table.add(std::move(cells), colours ? colour : Colour::none);
  };
  if (row.added != nullptr)
    add("+", *row.added, "", Colour::added);
  else if (row.gone != nullptr)
    add("-", *row.gone, "", Colour::gone);
  else
    add("*", row.changed->after, changeText(*row.changed), Colour::changed);
}

template <class Record>
void printChanges(std::ostream& out, const std::string& what, std::vector<std::string> columns,
                  const ListChanges<Record>& changes, const TableOptions& options) {
  printFirst(
      out, what + ": " + summary(changes), std::move(columns), rowsOf(changes, options.mostRows),
      options.mostRows,
      [&](TextTable& table, const Row<Record>& row) { addRow(table, row, options.colours); });
}

// "VNIs: +10010 -10020"
template <class Number>
void printNumbers(std::ostream& out, const char* what, const ListChanges<Number>& changes) {
  if (changes.empty()) return;
  out << what << ':';
  for (const Number& number : changes.added) out << " +" << number;
  for (const Number& number : changes.gone) out << " -" << number;
  out << '\n';
}

std::string idText(const DumpId& dump) {
  std::string text = dump.origin.source;
  appendTo(text, ": ", dump.label);
  return printable(text) + " at " + secondsText(dump.at);
}

}  // namespace

void printTable(std::ostream& out, const Diff& diff, const TableOptions& options) {
  out << "== " << idText(diff.now) << ", since "
      << (diff.since ? idText(*diff.since) : "the beginning") << filterText(diff.filter);
  out << (diff.empty() ? ": nothing changed\n" : "\n");
  for (const FlagChange& flag : diff.flags)
    out << flag.name << ": " << flagText(flag.before) << " -> " << flagText(flag.after) << '\n';
  printNumbers(out, "import VLANs", diff.vccImportVlans);
  printNumbers(out, "VNIs", diff.vnis);
  const std::vector<std::string> hostColumns{"", "MAC", "VLAN", "VTEP", ""};
  printChanges(out, "received hosts", hostColumns, diff.received, options);
  printChanges(out, "hosts of the layer-2 RIB", hostColumns, diff.hosts, options);
  printChanges(out, "flood sets", {"", "VLAN", "MAC", "type", "destinations", ""}, diff.floodSets,
               options);
}

}  // namespace Agent
