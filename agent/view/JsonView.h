// Dumps as JSON, one object a line, for programs to read.
//
// A snapshot:
//
//   {"journal": FILE, "line": 17, "dump": LABEL, "at": 12.0, "vlanToVni": {"10": 10010},
//    "client": {"vxlanControllerClientMode": true, "datapathLearningMode": false,
//               "vccImportVlans": [10], "vnis": [10010], "mlagBum": false,
//               "hostTable": {"markedForDelCount": 0, "entries": [ENTRY, ...]}},
//    "l2rib": {"hosts": [HOST, ...], "floodSets": [FLOODSET, ...]},
//    "clientView": {"convergenceInProgress": true},
//    "convergenceStatus": {"unicastDeferredDeletionInProgress": false,
//                          "bumDeferredDeletionInProgress": false}}
//
// `line` is that of the journal that was applied last, 0 before the first. A running agent has no
// journal: "switch": NAME stands there instead. A snapshot that is filtered has by what behind
// `at`: "filter": {"vlan": [10], "vni": [10010], "vtep": ["10.0.0.2"], "mac": [MAC]}, of these the
// kinds that are given.
//
// What is absent is null: `client`, `hosts`, `floodSets`, `clientView`, `convergenceStatus`.
//
//   ENTRY     {"mac": "02:00:00:00:00:01", "vlan": 10, "vti": "Vxlan1", "source": 10,
//              "vtep": "10.0.0.2", "moveCount": 0, "time": 3.0, "hostKind": 16,
//              "markedForDel": true}
//   HOST      the same up to "time", then "kind": 16, "entryType": 16. "vtep" is the first of the
//             host's VTEPs, 0.0.0.0 if it has none
//   FLOODSET  {"vlan": 10, "mac": "ff:ff:ff:ff:ff:ff", "type": 1, "dests": ["10.0.0.2"]}, or
//             {"vlan": 10} for a VLAN without any. "dests" has the destinations that are present:
//             one whose flag is false is not. A destination that is no VTEP stands behind the
//             VTEPs, as a text that says what it is ("tunnel 7")
//
// A difference:
//
//   {"journal": FILE, "line": 17, "diff": LABEL, "at": 12.0,
//    "since": {"journal": FILE, "line": 4, "dump": LABEL, "at": 3.0},
//    "flags": {"mlagBum": {"before": false, "after": true}, ...},
//    "vccImportVlans": CHANGES, "vnis": CHANGES, "entries": CHANGES, "hosts": CHANGES,
//    "floodSets": CHANGES}
//
// `since` is null for the first dump. Of two that were named to be compared, each begins with
// "source": its file or its agent's socket. A "filter" stands behind `since`. `flags` has those
// that differ, by their names in a dump, and "clientRunning"; a flag of what was absent is null.
// CHANGES is {"added": [...], "gone": [...], "changed": [{"before": {...}, "after": {...}}]} of
// numbers, ENTRY, HOST or FLOODSET.
//
// A turn of the timeline, a flag of what is absent being null:
//
//   {"journal": FILE, "line": 17, "turn": 12.0, "hosts": 3, "marked": 1, "deleted": 0,
//    "unicastDeferredDeletionInProgress": true, "bumDeferredDeletionInProgress": false}
//
// An exception, with the line of the journal that led to it:
//
//   {"journal": FILE, "line": 17, "exception": TYPE, "text": "..."}
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "agent/view/Diff.h"
#include "agent/view/Snapshot.h"
#include "agent/view/TimelineView.h"

namespace Agent {

// A dump in pieces, for who has other things to do in between. The snapshot must outlive it.
class DumpPieces {
 public:
  explicit DumpPieces(const Snapshot& snapshot);

  // Writes the next piece, of some milliseconds at most; false if that was the last.
  bool print(std::ostream& out);

 private:
  using Piece = std::function<bool(std::ostream&)>;

  void add(std::function<void(std::ostream&)> print);
  template <class Record>
  void addList(const char* name, const std::vector<Record>& records);
  template <class Record>
  void addList(const char* name, const std::optional<std::vector<Record>>& records);
  void addClient(const ClientSnapshot& client);

  std::vector<Piece> pieces_;  // true if it is to be called again
  std::size_t next_ = 0;
};

// The kinds of a filter that are given, as an object: {"vlan": [10], ...}.
nlohmann::ordered_json filterJson(const Filter& filter);

// Each ends its line. Records are written one by one: a million of them takes no room. All is in
// ASCII, so that no text from a recording controls a terminal; text that is not UTF-8 has its wrong
// bytes replaced by U+FFFD.
void printJson(std::ostream& out, const Snapshot& snapshot);
void printJson(std::ostream& out, const Diff& diff);
void printJson(std::ostream& out, const Turn& turn, const Origin& origin);
void printJsonException(std::ostream& out, const std::string& type, const std::string& text,
                        const Origin& origin);

}  // namespace Agent
