// From the updates of a session to announcements: takes messages, loads each whole into the rows,
// and only then evaluates what it has touched. It works in slices, so that the loop can do other
// things between them, whatever the size of a message.
//
// A whole state that lacks the row of our switch counts as not told: it is loaded, but nothing is
// evaluated until a later message brings the row. When a running session deletes the row, though,
// that is meant: all that our ports were bound to is withdrawn.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <simdjson.h>
#include <string>

#include "agent/base/Problems.h"
#include "agent/gate/Announcements.h"
#include "agent/ovsdb/Mapping.h"
#include "agent/ovsdb/PortAttachments.h"
#include "agent/ovsdb/Rows.h"
#include "agent/ovsdb/SessionListener.h"

namespace Agent::Ovsdb {

class Import {
 public:
  // Called from step(). All must be given; they may call take(), caughtUp() and inSyncLost().
  struct Events {
    std::function<void()> caughtUp;  // the state up to caughtUp() has been said and committed
    // A difference from a row that is not there: what is known is no longer what the server has,
    // which is to be asked for its whole state. Differences are passed over until that comes.
    std::function<void(const std::string& row)> unknownRow;
    std::function<void()> switchMissing;  // a whole state lacks our switch
  };

  // `switchName` is that of the Physical_Switch row that is us.
  Import(const std::string& switchName, Announcements& announcements, Mapping::Sink sink,
         PortAttachments::Sink attachments, Problems& problems, Events events);

  // As the session hands it over.
  void take(Updates updates);
  void caughtUp();
  // What was to be told by the caughtUp event is no longer true. The updates taken are.
  void inSyncLost();

  // Works for about as long, or for as many pieces, and no further than to the end of a message.
  // Returns whether there is more to do.
  bool step(double seconds);
  bool stepPieces(std::size_t pieces);

  bool hasWork() const { return !queue_.empty(); }
  // In the midst of a message.
  bool isBusy() const { return stage_ != 0 || tables_.has_value(); }

  // What has been said so far, in the midst of a message too: see Mapping.
  void eachHost(const Mapping::HostVisitor& visit) const { mapping_.eachHost(visit); }
  void eachList(const Mapping::ListVisitor& visit) const { mapping_.eachList(visit); }

  // Slots of rows and hosts, free ones included: they do not become more than there once were at a
  // time.
  std::size_t slots() const { return rows_.slots() + mapping_.slots(); }

 private:
  // The stages of a message. Each does a piece, and returns whether it may have another.
  bool load();
  bool sweep();
  bool judge();
  bool evaluate();
  bool collect();
  bool finish();

  void advance();
  void beginTable();
  void takeRow();
  void tellCaughtUp();

  const Events events_;
  Announcements& announcements_;
  Rows rows_;
  Mapping mapping_;

  std::deque<std::optional<Updates>> queue_;  // nothing: all before it is the whole state

  // Of the message in front.
  using Members = simdjson::dom::object::iterator;
  struct Range {
    Members at;
    Members end;
  };
  std::size_t stage_ = 0;
  bool isWhole_ = false;
  std::optional<Range> tables_;
  std::optional<Range> tableRows_;
  Table table_{};

  bool isWaiting_ = false;      // for the row of our switch
  bool isCaughtUpDue_ = false;  // when it has come
  bool isLost_ = false;         // until a whole state comes
};

}  // namespace Agent::Ovsdb
