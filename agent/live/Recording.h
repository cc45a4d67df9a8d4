// The recording of a live run: a state journal of all that is applied. Each file replays by itself:
// it begins with the state of the moment.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "agent/base/Descriptor.h"
#include "agent/base/Problems.h"
#include "agent/journal/Journal.h"

namespace Agent {

struct RecordingOptions {
  std::string file;         // empty: there is none
  std::size_t largest = 0;  // bytes after which a new file is begun; 0: never
};

class Recording {
 public:
  using Write = std::function<void(const Action&)>;
  // Writes the lines that bring a new store and client into the state of now.
  using WriteState = std::function<void(const Write&)>;

  // How many files are kept behind the one that is written: FILE.1, the newest of them, to FILE.3.
  static constexpr int kept = 3;

  // A file that is there is kept as FILE.1. Throws std::system_error where none can be written;
  // what goes wrong later is a problem, and ends the recording.
  Recording(RecordingOptions options, WriteState writeState, Problems& problems);

  // Written at once, so that a crash does not take the line that led to it.
  void write(const Action& action);

  // Begins a new file if this one has become too large. To be called where the state is whole:
  // between two actions.
  void rotateIfFull();

  const std::string& file() const { return options_.file; }
  bool isWritten() const { return file_.number() >= 0; }
  std::size_t size() const { return size_; }

 private:
  // Does what may fail: that ends the recording.
  template <class Work>
  void attempt(Work work);

  void begin();
  void append(std::string_view text);
  void writeState();
  double time() const;

  const RecordingOptions options_;
  const WriteState writeState_;
  Problems& problems_;
  Descriptor file_;
  std::size_t size_ = 0;       // of the file
  std::size_t stateSize_ = 0;  // of what it began with
  double begun_ = 0;
};

}  // namespace Agent
