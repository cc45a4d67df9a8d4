#include "agent/story/Story.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agent/base/Text.h"

namespace Agent {

namespace {

using Told = std::optional<StoryLine>;

// Follows the events, and tells what each means behind those before it.
class Teller {
 public:
  Told tell(const Event& event) {
    switch (event.kind) {
      case EventKind::announced:
        return announced(event);
      case EventKind::withdrawn:
        return gone(event, "withdrawn", rows_, event.vni);
      case EventKind::received:
        return received(event);
      case EventKind::dropped:
        return gone(event, "deleted", received_, event.vlan);
      case EventKind::copied:
        return copied(event);
      case EventKind::removed:
        return gone(event, "removed", copies_, event.vlan);
      case EventKind::destDel:
        return withConvergence(line(event, "destRemoved"), event.flag);
      case EventKind::clientStarted:
        received_.clear();
        return line(event, "clientStarted");
      case EventKind::vniDel:
        rows_.erase(event.vni);
        return line(event, "vniRemoved");
      case EventKind::converging:
        ++convergences_;
        isConverging_ = true;
        return withConvergence(line(event, "converging"), true);
      case EventKind::converged:
        if (!std::exchange(isConverging_, false)) return std::nullopt;
        convergedAt_ = event.at;
        return withConvergence(line(event, "converged"), true);
      default:
        return line(event, nameOf(event.kind));
    }
  }

 private:
  struct Place {
    Vorn::IpAddr vtep{};
    bool isMarked = false;
  };
  template <class Number>
  using Places = std::map<Number, Place>;

  static StoryLine line(const Event& event, std::string_view what) { return {event, what}; }

  // Those that mean the same whatever was before.
  static std::string_view nameOf(EventKind kind) {
    switch (kind) {
      case EventKind::flooded:
        return "floodList";
      case EventKind::notFlooded:
        return "noFloodList";
      case EventKind::multiPath:
        return "multiPath";
      case EventKind::noMultiPath:
        return "noMultiPath";
      case EventKind::ignored:
        return "ignored";
      case EventKind::destIs:
        return "destAdded";
      case EventKind::clientStopped:
        return "clientStopped";
      case EventKind::vniIs:
        return "vni";
      case EventKind::mapIs:
        return "map";
      case EventKind::mapDel:
        return "mapRemoved";
      case EventKind::vtiIs:
        return "vti";
      case EventKind::vtiDel:
        return "vtiRemoved";
      case EventKind::bumMode:
        return "replicationMode";
      case EventKind::mlagState:
        return "mlagState";
      case EventKind::ownVtep:
        return "ownVtep";
      case EventKind::waiting:
        return "waiting";
      case EventKind::notWaiting:
        return "backInTime";
      case EventKind::programmed:
        return "programmed";
      case EventKind::unprogrammed:
        return "unprogrammed";
      case EventKind::refused:
        return "refused";
      case EventKind::putBack:
        return "putBack";
      case EventKind::holdBegan:
        return "hold";
      case EventKind::holdEnded:
        return "holdEnded";
      default:
        return "";
    }
  }

  // In the course of a convergence, or as its consequence.
  StoryLine withConvergence(StoryLine line, bool isOfIt) const {
    if (!isOfIt) return line;
    line.convergence = convergences_;
    if (!isConverging_ && convergences_ != 0 && line.event.kind != EventKind::converged)
      line.after = line.event.at - convergedAt_;
    return line;
  }

  template <class Number>
  Told gone(const Event& event, std::string_view what, Places<Number>& places, Number number) {
    StoryLine told = withConvergence(line(event, what), event.flag);
    if (const auto at = places.find(number); at != places.end()) told.from = at->second.vtep;
    places.erase(number);
    return told;
  }

  Told announced(const Event& event) {
    const auto [at, isNew] = rows_.try_emplace(event.vni, Place{event.vtep});
    const Vorn::IpAddr before = std::exchange(at->second.vtep, event.vtep);
    if (isNew) return line(event, "announced");
    if (before == event.vtep) return line(event, "announcedAgain");
    StoryLine told = line(event, "announcedElsewhere");
    told.from = before;
    return told;
  }

  Told received(const Event& event) {
    const Place now{event.vtep, event.flag};
    const auto [at, isNew] = received_.try_emplace(event.vlan, now);
    const Place before = std::exchange(at->second, now);
    if (isNew) return line(event, event.flag ? "marked" : "came");
    StoryLine told = line(event, "refreshed");
    if (before.vtep != now.vtep) {
      told.what = "moved";
      told.from = before.vtep;
    }
    if (!before.isMarked && now.isMarked) told.what = "marked";
    if (before.isMarked && !now.isMarked) told.what = "unmarked";
    return withConvergence(told, before.isMarked != now.isMarked);
  }

  // The RIB is written with every refresh.
  Told copied(const Event& event) {
    const auto [at, isNew] = copies_.try_emplace(event.vlan, Place{event.vtep});
    const Vorn::IpAddr before = std::exchange(at->second.vtep, event.vtep);
    if (!isNew && before == event.vtep) return std::nullopt;
    StoryLine told = line(event, "copied");
    if (!isNew) told.from = before;
    return told;
  }

  Places<std::uint32_t> rows_;      // of the controller, by VNI
  Places<std::uint16_t> received_;  // of the host table, by VLAN
  Places<std::uint16_t> copies_;    // of the RIB
  unsigned convergences_ = 0;
  bool isConverging_ = false;
  double convergedAt_ = 0;
};

// Which events of no MAC concern it.
class Concern {
 public:
  Concern(const std::vector<Event>& events, const StoryScope& scope) : scope_(scope) {
    for (const Event& event : events) {
      if (!hasMac(event.kind)) continue;
      if (event.vlan != 0) vlans_.insert(event.vlan);
      if (event.vni != 0) vnis_.insert(event.vni);
      if (event.kind == EventKind::flooded || event.kind == EventKind::multiPath ||
          event.kind == EventKind::destIs)
        isFlooded_ = true;
    }
    // A VLAN that several VNIs share is cleaned up with each of them.
    for (const Event& event : events)
      if (event.kind == EventKind::mapIs && vlans_.contains(event.vlan)) vnis_.insert(event.vni);
  }

  bool has(const Event& event) const {
    if (hasMac(event.kind)) return scope_.has(event);
    switch (event.kind) {
      case EventKind::vniIs:
      case EventKind::vniDel:
        return vnis_.contains(event.vni) && scope_.has(event);
      case EventKind::mapIs:
      case EventKind::mapDel:
        return (event.vlan == 0 || vlans_.contains(event.vlan) || vnis_.contains(event.vni)) &&
               scope_.has(event);
      case EventKind::bumMode:
      case EventKind::mlagState:
        return isFlooded_;
      default:
        return true;
    }
  }

 private:
  const StoryScope& scope_;
  std::set<std::uint16_t> vlans_;
  std::set<std::uint32_t> vnis_;
  bool isFlooded_ = false;
};

// Whether the second is what has become of the first in the RIB. The client writes its host table
// first, but what it does upon that is seen before.
bool isMirroredBy(const Event& entry, const Event& copy) {
  return ((entry.kind == EventKind::received && copy.kind == EventKind::copied) ||
          (entry.kind == EventKind::dropped && copy.kind == EventKind::removed)) &&
         entry.vlan == copy.vlan;
}

// With what is written first before what comes of it.
std::vector<Event> inOrder(std::vector<Event> events) {
  for (std::size_t i = 1; i < events.size(); ++i)
    if (isMirroredBy(events[i], events[i - 1])) {
      events[i].at = events[i - 1].at;
      std::swap(events[i], events[i - 1]);
    }
  return events;
}

}  // namespace

std::vector<StoryLine> storyOf(std::vector<Event> events, const StoryScope& scope) {
  const Concern concern(events, scope);
  Teller teller;
  std::vector<StoryLine> lines;
  bool hasBegun = false;
  for (const Event& event : inOrder(std::move(events))) {
    const auto told = teller.tell(event);
    if (!concern.has(event)) continue;
    hasBegun = hasBegun || hasMac(event.kind);
    if (told && hasBegun) lines.push_back(*told);
  }
  return lines;
}

namespace {

std::string vlanText(const Event& event) { return "VLAN " + std::to_string(event.vlan); }
std::string vniText(const Event& event) { return "VNI " + std::to_string(event.vni); }
std::string behind(const Event& event) { return "behind " + event.vtep.stringValue(); }

std::string convergenceText(const StoryLine& line) {
  if (line.convergence == 0) return "of a convergence that had begun before";
  const std::string which = "convergence " + std::to_string(line.convergence);
  if (!line.after) return "during " + which;
  return secondsText(*line.after) + " after the end of " + which;
}

std::string fromTo(const StoryLine& line) {
  return "from " + line.from->stringValue() + " to " + line.event.vtep.stringValue();
}

// By what a deletion came about.
std::string how(const StoryLine& line) {
  return line.event.flag ? " by the deferred deletion, " + convergenceText(line)
                         : std::string(" at once");
}

std::string hostText(const StoryLine& line) {
  const Event& event = line.event;
  const std::string_view what = line.what;
  if (what == "announced") return "announced in " + vniText(event) + ' ' + behind(event);
  if (what == "announcedAgain") return "announced again in " + vniText(event) + ' ' + behind(event);
  if (what == "announcedElsewhere")
    return "announced in " + vniText(event) + " elsewhere: " + fromTo(line) +
           (event.number == 0 ? "" : ", move count " + std::to_string(event.number));
  if (what == "withdrawn")
    return "withdrawn from " + vniText(event) +
           (line.from ? ", where it was behind " + line.from->stringValue()
                      : std::string(event.number == 0 ? ", which did not have it" : ""));
  if (what == "came")
    return "came to " + vlanText(event) +
           (event.vti == Vorn::IntfId() ? "" : " over " + event.vti.stringValue()) + ' ' +
           behind(event);
  if (what == "moved") return "moved in " + vlanText(event) + ' ' + fromTo(line);
  if (what == "refreshed") return "refreshed in " + vlanText(event) + ' ' + behind(event);
  if (what == "marked")
    return "marked for deletion in " + vlanText(event) + ", " + convergenceText(line);
  if (what == "unmarked")
    return "unmarked in " + vlanText(event) + (line.from ? ", and moved " + fromTo(line) : "") +
           ", " + convergenceText(line);
  if (what == "ignored")
    return "not taken in " + vlanText(event) + ": " + event.vtep.stringValue() + " is our own VTEP";
  if (what == "deleted") return "deleted from " + vlanText(event) + how(line);
  if (what == "copied") return "copied into the RIB, " + vlanText(event) + ' ' + behind(event);
  return "left the RIB, " + vlanText(event);
}

std::string floodText(const StoryLine& line) {
  const Event& event = line.event;
  const std::string vteps = std::to_string(event.number) + (event.number == 1 ? " VTEP" : " VTEPs");
  switch (event.kind) {
    case EventKind::flooded:
      return "flood list in " + vniText(event) + " of " + vteps;
    case EventKind::notFlooded:
      return "no flood list any more in " + vniText(event);
    case EventKind::multiPath:
      return "multipath entry in " + vniText(event) + " of " + vteps;
    case EventKind::noMultiPath:
      return "no multipath entry any more in " + vniText(event);
    case EventKind::destIs:
      return "flooded in " + vlanText(event) + " to " + event.vtep.stringValue();
    default:
      return "no longer flooded in " + vlanText(event) + " to " + event.vtep.stringValue() +
             (event.flag ? how(line) : "");
  }
}

// What a change of a VTI sets.
std::string vtiText(std::uint32_t parts) {
  std::string text;
  const auto add = [&](std::uint32_t part, const char* what) {
    if ((parts & part) != 0) appendTo(text, ", ", what);
  };
  add(VtiPart::controllerMode, "controller mode on");
  add(VtiPart::noControllerMode, "controller mode off");
  add(VtiPart::learning, "learning in the data path on");
  add(VtiPart::noLearning, "learning in the data path off");
  add(VtiPart::address, "its address");
  add(VtiPart::vArpAddress, "its virtual-ARP address");
  add(VtiPart::imports, "its import list");
  return text.empty() ? "nothing new" : text;
}

std::string aroundText(const StoryLine& line) {
  const Event& event = line.event;
  const std::string& vti = event.vti.stringValue();
  switch (event.kind) {
    case EventKind::clientStarted:
      return "the client starts";
    case EventKind::clientStopped:
      return "the client stops";
    case EventKind::converging:
      return "convergence " + std::to_string(line.convergence) + " begins";
    case EventKind::converged:
      return "convergence " + std::to_string(line.convergence) + " ends";
    case EventKind::vniIs:
      return "the controller has " + vniText(event) + (event.flag ? "" : ", not instantiated");
    case EventKind::vniDel:
      return "the controller no longer has " + vniText(event);
    case EventKind::mapIs:
      if (event.vlan == 0) return "the VLAN-VNI map of " + vti + " is set";
      return vti + " maps " + vlanText(event) + " to " + vniText(event);
    case EventKind::mapDel:
      return vti + " maps " + (event.vlan == 0 ? "nothing" : vlanText(event) + " to no VNI") +
             " any more";
    case EventKind::vtiIs:
      return vti + ": " + vtiText(event.number);
    case EventKind::vtiDel:
      return vti + " is gone";
    case EventKind::bumMode:
      return "the hardware's replication mode is " + std::to_string(event.number);
    case EventKind::mlagState:
      return "the MLAG state is " + std::to_string(event.number);
    default:
      return event.vtep.stringValue() + " is an address of the MLAG pair";
  }
}

std::string liveText(const Event& event) {
  switch (event.kind) {
    case EventKind::waiting:
      return "its withdrawal from " + vniText(event) +
             (event.flag ? " is held" : " waits in the gate");
    case EventKind::notWaiting:
      return "back in " + vniText(event) + " before its withdrawal went through";
    case EventKind::programmed:
      return "programmed into the kernel for " + vniText(event) +
             (event.vtep == Vorn::IpAddr() ? " behind a group" : ' ' + behind(event));
    case EventKind::unprogrammed:
      return "removed from the kernel for " + vniText(event);
    case EventKind::refused:
      return "refused by the kernel for " + vniText(event);
    case EventKind::putBack:
      return "put back into the kernel for " + vniText(event) + ": somebody else had changed it";
    case EventKind::holdBegan:
      return "a hold begins";
    default:
      return "the hold ends";
  }
}

}  // namespace

std::string textOf(const StoryLine& line) {
  const EventKind kind = line.event.kind;
  if (kind >= EventKind::waiting) return liveText(line.event);
  if (kind >= EventKind::clientStarted) return aroundText(line);
  if (kind == EventKind::destIs || kind == EventKind::destDel ||
      (kind >= EventKind::flooded && kind <= EventKind::noMultiPath))
    return floodText(line);
  return hostText(line);
}

}  // namespace Agent
