#include "agent/ovsdb/Import.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace Agent::Ovsdb {

Import::Import(const std::string& switchName, Announcements& announcements, Mapping::Sink sink,
               PortAttachments::Sink attachments, Problems& problems, Events events)
    : events_(std::move(events)),
      announcements_(announcements),
      rows_(problems),
      mapping_(switchName, rows_, announcements, std::move(sink), std::move(attachments),
               problems) {}

void Import::take(Updates updates) { queue_.emplace_back(std::move(updates)); }

void Import::caughtUp() { queue_.emplace_back(); }

void Import::inSyncLost() {
  std::erase_if(queue_, [](const auto& updates) { return !updates.has_value(); });
  isCaughtUpDue_ = false;
}

bool Import::step(double seconds) {
  constexpr std::size_t piecesPerLook = 8;  // at the time
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  do {
    stepPieces(piecesPerLook);
  } while (isBusy() && Clock::now() < end);
  return hasWork();
}

bool Import::stepPieces(std::size_t pieces) {
  while (pieces-- > 0) {
    advance();
    if (!isBusy()) break;
  }
  return hasWork();
}

void Import::advance() {
  static constexpr std::array stages{&Import::load,     &Import::sweep,   &Import::judge,
                                     &Import::evaluate, &Import::collect, &Import::finish};
  if (queue_.empty()) return;
  const auto& next = queue_.front();
  if (!next || (isLost_ && !isBusy() && !next->whole)) {
    const bool isMarker = !next;
    queue_.pop_front();
    if (isMarker) tellCaughtUp();
    return;
  }
  if (!(this->*stages[stage_])()) stage_ = (stage_ + 1) % stages.size();
}

bool Import::load() {
  if (!tables_) {
    const Updates& updates = *queue_.front();
    isWhole_ = updates.whole;
    if (isWhole_) {
      rows_.beginWhole();
      isLost_ = false;
    }
    tables_.emplace(Range{updates.tables.begin(), updates.tables.end()});
  }
  if (tableRows_) {
    takeRow();
    return true;
  }
  if (tables_->at != tables_->end) {
    beginTable();
    return true;
  }
  tables_.reset();
  queue_.front()->document.reset();
  return false;
}

void Import::beginTable() {
  const auto name = tables_->at.key();
  const Json value = tables_->at.value();
  ++tables_->at;
  const auto known = std::ranges::find(monitoredTables, name, &TableSchema::name);
  if (known == monitoredTables.end()) return;
  table_ = static_cast<Table>(known - monitoredTables.begin());
  simdjson::dom::object rows;
  if (value.get(rows) == simdjson::SUCCESS)
    tableRows_.emplace(Range{rows.begin(), rows.end()});
  else
    rows_.raiseMisshapen(std::string(name), simdjson::minify(value), "the rows of a table");
}

void Import::takeRow() {
  if (tableRows_->at == tableRows_->end) {
    tableRows_.reset();
    return;
  }
  const auto uuid = tableRows_->at.key();
  const Json update = tableRows_->at.value();
  ++tableRows_->at;
  if (rows_.take(table_, uuid, update, queue_.front()->form)) return;
  if (std::exchange(isLost_, true)) return;
  events_.unknownRow(std::string(schemaOf(table_).name) + ' ' + std::string(uuid));
}

bool Import::sweep() { return isWhole_ && rows_.sweep(); }

bool Import::judge() {
  const bool isThere = mapping_.findSwitch();
  mapping_.wholeIs(isWhole_ || isWaiting_);
  if (isWhole_ || isWaiting_) isWaiting_ = !isThere;
  if (isWhole_ && isWaiting_) events_.switchMissing();
  return false;
}

bool Import::evaluate() {
  if (isWaiting_) return false;
  if (mapping_.advance()) return true;
  announcements_.commit();
  return false;
}

bool Import::collect() { return rows_.collect(); }

bool Import::finish() {
  queue_.pop_front();
  if (std::exchange(isCaughtUpDue_, false)) tellCaughtUp();
  return false;
}

void Import::tellCaughtUp() {
  if (isLost_) return;
  if (isWaiting_)
    isCaughtUpDue_ = true;
  else
    events_.caughtUp();
}

}  // namespace Agent::Ovsdb
