// What a live agent says: a line an event, with its time and level. Under a journal that adds the
// time itself, the level is as that one reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace Agent {

class Log {
 public:
  // The stream must outlive the log. `underJournal`: see readsJournal().
  Log(std::ostream& out, bool underJournal) : out_(out), underJournal_(underJournal) {}

  void error(const std::string& text) { write(Level::error, text); }
  void warning(const std::string& text) { write(Level::warning, text); }
  void notice(const std::string& text) { write(Level::notice, text); }

  // Whether what is written to the descriptor goes to the system's journal, as $JOURNAL_STREAM
  // tells.
  static bool readsJournal(int descriptor);

 private:
  // The numbers that syslog has for them.
  enum class Level : std::uint8_t { error = 3, warning = 4, notice = 5 };

  void write(Level level, const std::string& text);

  std::ostream& out_;
  const bool underJournal_;
};

}  // namespace Agent
