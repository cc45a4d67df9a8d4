// Whether a client runs, and which inputs the next one is handed as null: what the start, stop and
// absent lines of a journal say, and whether they stand where they may.
//
// A journal without a start line starts the client before its first line. Whether it has one must
// therefore be known from the beginning, which is why journals are read twice (JournalFile.h).
#pragma once

#include "agent/journal/Journal.h"
#include "agent/store/Inputs.h"

namespace Agent {

class Lifecycle {
 public:
  explicit Lifecycle(bool journalHasStart) : running_(!journalHasStart) {}

  bool running() const { return running_; }
  const InputSet& absent() const { return absent_; }

  // Follows an action, to be called before it is carried out. Throws InputError, and changes
  // nothing, if it is out of place.
  void follow(const Action& action);
  void follow(const Start& start);
  void follow(const Stop& stop);
  void follow(const Absent& absent);

  // The client could not be built: none runs.
  void clientFailed() { running_ = false; }

 private:
  bool running_;
  InputSet absent_;
};

}  // namespace Agent
