// Plays a journal to the client: on a store of its own, on a virtual clock or the real one.
//
// Lines of the same time are one turn of the event loop. They are applied in order, the reactions
// to each running to their end before the next. Before a line of a later time, the clocks that are
// due by then fire, the earliest first, and no clock fires in between. In the end the clocks run
// until none is armed.
//
// A replay may end earlier, as it would be found then: at a time, what is due by then having fired,
// or behind a line.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/journal/Journal.h"
#include "agent/journal/JournalFile.h"
#include "agent/journal/Lifecycle.h"
#include "agent/replay/Progress.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/story/Witness.h"
#include "agent/trace/TraceStream.h"
#include "agent/view/Output.h"
#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Exception.h"

namespace Agent {

// Who is told of what happens.
struct Watching {
  std::optional<Vorn::EthAddr> mac{};  // to this one alone
  Witness::Sinks sinks{};
  // At the end of each turn of the event loop, and when nothing more comes, which may be within a
  // turn; may be empty.
  std::function<void(const Witness::Moment&, const EmbeddedClient&)> turnEnded{};
  std::function<void(const Witness::Moment&, const EmbeddedClient&)> ended{};
};

struct ReplayOptions {
  std::optional<double> maxProcessTime{};  // of the client, in seconds
  double timePerRead = 0;                  // by which a reading moves the virtual time, in seconds
  std::optional<double> speed{};          // on the real clock: how many times that of the recording
  std::optional<double> until{};          // the time of the recording at which it ends, in seconds
  std::optional<std::uint64_t> stopAt{};  // the last line that is played
  bool keepGoing = false;                 // after an exception
  bool timeline = false;                  // a line for each turn of the event loop
  bool progress = false;                  // on the error stream, which is a terminal
  std::optional<Watching> watching{};
};

class Replay {
 public:
  // Errors go to `errors`, all else to `output`; nowhere if that is null. Both and the file must
  // outlive this object; `hasStart` is what the file's findStart() said. It takes the process's
  // activity facility and its assertion context for itself.
  Replay(JournalFile& file, bool hasStart, const ReplayOptions& options, Output* output,
         std::ostream& errors);
  ~Replay();
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Plays it all. Throws what the streams throw that cannot be read or written.
  ExitStatus run();

  // What the client has made by now, as the dump of this label.
  Snapshot snapshot(const std::string& label) const;

  // The journal, and the line applied last.
  const Origin& origin() const { return origin_; }

  // The time of the recording, without counting as a reading.
  double time() const;

  const EmbeddedClient& embedded() const { return embedded_; }

 private:
  class HostWatcher;

  bool playLine();
  void play(const Line& line);
  bool refuse(const Moru::Exception& exception);
  void carryOut(const Change& change);
  void carryOut(const Dump& dump) { printDump(dump.label); }
  void carryOut(const Start&) { startClient(); }
  void carryOut(const Stop&) { stopClient(); }
  void carryOut(const Absent&) { embedded_.absentIs(lifecycle_.absent()); }
  void startClient();
  void stopClient();
  bool fireClocks(double until);
  void printDump(const std::string& label);
  void endTurn();
  void printTurn();
  bool takeException(const Moru::Exception& exception);
  bool isBeyond() const;
  bool isStopped() const;
  std::string finish();
  bool isOver() const;
  std::string place() const;

  const ReplayOptions options_;
  Output* const output_;
  std::ostream& errors_;
  Progress progress_;

  Moru::Ptr<Moru::VirtualTime> virtualTime_;  // null on the real clock
  Moru::Ptr<Moru::ActivityFacility> facility_;
  Journal journal_;
  Lifecycle lifecycle_;
  EmbeddedClient embedded_;
  Moru::Ptr<HostWatcher> hostWatcher_;
  std::optional<Witness> witness_;

  Origin origin_;  // the journal, and the line applied last
  double at_ = 0;  // of that line
  std::uint64_t firedInARow_ = 0;
  ExitStatus status_ = ExitStatus::done;
  bool ended_ = false;  // by an error
};

// Plays each journal on its own, one after the other; the first failure decides the exit status.
// Where there are several, the output names them.
int replayCommand(const std::vector<std::string>& journals, const ReplayOptions& options,
                  OutputOptions output, const std::optional<TraceStreamOptions>& trace,
                  std::ostream& out, std::ostream& errors);

}  // namespace Agent
