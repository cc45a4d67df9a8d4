#include "agent/trace/RingStory.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/base/Text.h"
#include "agent/trace/HostStatements.h"

namespace Agent {

namespace {

using Ringlog::Contents;
using Ringlog::Message;

// The level at which the client tells of hosts.
constexpr unsigned hostLevel = 8;

constexpr double nanosecond = 1e-9;
double secondsOf(std::int64_t nanoseconds) { return static_cast<double>(nanoseconds) * nanosecond; }
// To the microsecond, which is what a number of seconds since 1970 can tell.
std::int64_t nanosecondsOf(double seconds) {
  return static_cast<std::int64_t>(std::llround(seconds * 1e6)) * 1000;
}

// The number that a text begins with, 0 if it is none: also a name of an entry.
std::uint32_t numberOf(std::string_view text) {
  std::uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// What a message has traced.
class Values {
 public:
  explicit Values(const Message& message) : values_(message.values()) {}

  bool isSet(std::size_t i) const { return text(i) == "true"; }
  std::uint32_t number(std::size_t i) const { return numberOf(text(i)); }
  std::uint16_t vlan(std::size_t i) const { return static_cast<std::uint16_t>(number(i)); }
  Vorn::IpAddr ip(std::size_t i) const {
    return Vorn::IpAddr::parse(text(i)).value_or(Vorn::IpAddr());
  }

  // Of a MAC and a VLAN the latter.
  std::uint16_t vlanOfKey(std::size_t i) const {
    const std::string_view key = text(i);
    const auto blank = key.rfind(' ');
    return blank != std::string_view::npos
               ? static_cast<std::uint16_t>(numberOf(key.substr(blank + 1)))
               : std::uint16_t{0};
  }

 private:
  // A file of nonsense may hold any statement.
  std::string_view text(std::size_t i) const {
    return i < values_.size() ? std::string_view(values_[i].text) : std::string_view();
  }

  std::vector<Ringlog::LabelledValue> values_;
};

// Follows the messages, one ring after the other.
class Teller {
 public:
  Teller(const Vorn::EthAddr& mac, RingStory& story)
      : mac_(mac), macText_(mac.stringValue()), story_(story) {}

  void begin(const Contents& ring) {
    tellWritten();
    statements_.clear();
    before_.reset();
    converging_.reset();
    controllerMode_.reset();
    handled_ = {};
    deletion_.reset();
    announced_.clear();
    // A client opens the ring, and what it said first is gone.
    at_ = secondsOf(ring.openedAt);
    if (ring.wholeSince(hostLevel)) tell({.kind = EventKind::clientStarted});
    beginning_ = story_.events.size();
    beganAt_ = ring.messages.empty() ? at_ : secondsOf(ring.messages.front().time);
  }

  void take(const Message& message) {
    at_ = secondsOf(message.time);
    auto [known, isNew] = statements_.try_emplace(message.site.get());
    if (isNew) known->second = hostStatementOf(*message.site);
    if (known->second != HostStatement::other) take(known->second, message);
    before_ = known->second;
  }

  void conclude() {
    tellWritten();
    for (const auto& [vlan, host] : hosts_) addFinding(vlan, host);
    if (!story_.verdict.empty()) return;
    if (isLearning_)
      add("dataPathLearning", 0, 0, "looked at, but all VTIs learn in the data path");
    else if (isNotMapped_)
      add("notMapped", 0, 0, "looked at, but no VTI maps its VNI to a VLAN");
    else
      add("notTold", 0, 0, "not told of");
  }

 private:
  // The announcement that is being looked at.
  struct Handled {
    bool isMine = false;
    bool isTold = false;  // once for all VLANs
    std::uint32_t vni = 0;
    std::uint16_t vlan = 0;
  };
  struct Deletion {
    std::uint16_t vlan;
    bool isDeferred;
  };
  struct Announced {
    Vorn::IpAddr vtep{};
    std::uint32_t moves = 0;
    bool operator==(const Announced&) const = default;
  };
  // A host in a VLAN, as the last messages have left it.
  struct Host {
    std::uint32_t vni = 0;
    Vorn::IpAddr vtep{};
    bool isReceived = false;
    bool isMarked = false;
    bool isCopied = false;
    std::string_view gate = "unexplained";
    std::string why{};
  };

  // Values are read only where they matter: most messages are of other hosts.
  void take(HostStatement statement, const Message& message) {
    if (namesMac(statement)) {
      const bool isMine = message.text.find(macText_) != std::string::npos;
      if (statement == HostStatement::handling) handled_ = {.isMine = isMine};
      if (statement == HostStatement::mark) expectConvergence();
      if (isMine) takeHost(statement, Values(message));
    } else if (isOfHandling(statement)) {
      if (handled_.isMine) takeHandled(statement, Values(message));
    } else {
      takeAround(statement, Values(message));
    }
  }

  void takeHost(HostStatement statement, const Values& values) {
    switch (statement) {
      case HostStatement::handling:
        isLearning_ = values.isSet(1);
        return;
      case HostStatement::withdrawal:
        return withdrawn(values.vlan(1));
      case HostStatement::announcement:
        return announced(values);
      case HostStatement::mark:
        return marked(values.vlanOfKey(0), values.ip(1));
      case HostStatement::deletion:
        deletion_ = {values.vlanOfKey(0), isOfBatch()};
        return;
      case HostStatement::cleanup:
        return cleanedUp(values.vlan(1));
      default:
        return mirrored(values.vlanOfKey(0));
    }
  }

  void takeHandled(HostStatement statement, const Values& values) {
    switch (statement) {
      case HostStatement::mapped:
        handled_.vni = values.number(0);
        handled_.vlan = values.vlan(1);
        return;
      case HostStatement::notMapped:
        isNotMapped_ = true;
        return;
      case HostStatement::ownVtep:
        return ownVtep(values.ip(0));
      default:
        return;
    }
  }

  void takeAround(HostStatement statement, const Values& values) {
    switch (statement) {
      case HostStatement::vniCleanup:
      case HostStatement::learning:
        isOfLearning_ = statement == HostStatement::learning;
        return;
      case HostStatement::convergence:
        convergenceIs(values.isSet(1));
        return;
      case HostStatement::clientStart:
        tell({.kind = EventKind::clientStarted});
        vnis_.clear();
        announced_.clear();
        return;
      case HostStatement::staleCopies:
        // The table of a new client is empty.
        for (auto& [vlan, host] : hosts_) {
          if (std::exchange(host.isCopied, false))
            tell({.mac = mac_, .vlan = vlan, .kind = EventKind::removed});
          host = {.vni = host.vni, .why = "as a new client began"};
        }
        return;
      case HostStatement::modes:
        controllerMode_ = values.isSet(2);
        return;
      case HostStatement::vniAdded:
        vniIs(values.number(0), EventKind::vniIs, true);
        return;
      case HostStatement::vniNotInstantiated:
        vniIs(values.number(0), EventKind::vniIs, false);
        return;
      case HostStatement::vniDeleted:
        // It is also said of entries that are there, where no VTI wants the controller's.
        if (controllerMode_ != false) vniIs(values.number(0), EventKind::vniDel, false);
        return;
      default:
        return;
    }
  }

  void announce(std::uint32_t vni, const Announced& now) {
    const auto [at, isNew] = announced_.try_emplace(vni, now);
    if (isNew || std::exchange(at->second, now) != now)
      tell({.mac = mac_,
            .kind = EventKind::announced,
            .vni = vni,
            .vtep = now.vtep,
            .number = now.moves});
  }

  void announced(const Values& values) {
    const std::uint16_t vlan = values.vlan(1);
    const Announced now{values.ip(2), values.number(3)};
    announce(handled_.vni, now);
    writes({.mac = mac_, .vlan = vlan, .kind = EventKind::received, .vtep = now.vtep});
    Host& host = hosts_[vlan];
    host.vni = handled_.vni;
    host.vtep = now.vtep;
    host.isReceived = true;
    host.isMarked = false;
    host.why.clear();
  }

  // It is told behind what the mirror makes of it, in the order in which a witness sees the two. Of
  // a process that has died in between there is nothing to wait for.
  void writes(Event event) {
    tellWritten();
    event.at = at_;
    written_ = event;
  }
  void tellWritten() {
    if (written_) story_.events.push_back(*std::exchange(written_, std::nullopt));
  }

  // In the table it stays as it was until it is deleted.
  void ownVtep(const Vorn::IpAddr& vtep) {
    const auto known = announced_.find(handled_.vni);
    announce(handled_.vni, {vtep, known != announced_.end() ? known->second.moves : 0});
    const std::string why = "announced behind " + vtep.stringValue() + ", which is our own VTEP";
    if (hosts_[handled_.vlan].why == why) return;  // it is looked at again
    tell({.mac = mac_,
          .vlan = handled_.vlan,
          .kind = EventKind::ignored,
          .vni = handled_.vni,
          .vtep = vtep});
    hosts_[handled_.vlan].vni = handled_.vni;
    setGate(handled_.vlan, "ownVtep", why);
  }

  void withdrawn(std::uint16_t vlan) {
    const bool wasTold = announced_.erase(handled_.vni) != 0;
    if (!std::exchange(handled_.isTold, true))
      tell({.mac = mac_,
            .kind = EventKind::withdrawn,
            .vni = handled_.vni,
            .number = wasTold ? 0U : 1U});
    hosts_[vlan].vni = handled_.vni;
    setGate(vlan, "notAnnounced", "the controller has withdrawn it");
  }

  void cleanedUp(std::uint16_t vlan) {
    if (isOfLearning_)
      setGate(vlan, "dataPathLearning", "all VTIs learn in the data path");
    else
      setGate(vlan, "notFollowed", "its VNI is no longer followed");
  }

  // Nothing is marked but during a convergence: one that nobody has told of began before the ring.
  void expectConvergence() {
    if (converging_) return;
    converging_ = true;
    story_.events.insert(story_.events.begin() + static_cast<std::ptrdiff_t>(beginning_),
                         {.at = beganAt_, .kind = EventKind::converging});
  }

  void marked(std::uint16_t vlan, const Vorn::IpAddr& vtep) {
    writes({.mac = mac_, .vlan = vlan, .kind = EventKind::received, .flag = true, .vtep = vtep});
    Host& host = hosts_[vlan];
    host.vtep = vtep;
    host.isReceived = host.isMarked = host.isCopied = true;
  }

  // What deletes a host at once says so just before.
  bool isOfBatch() const {
    return before_ && before_ != HostStatement::withdrawal && before_ != HostStatement::stale &&
           before_ != HostStatement::cleanup;
  }

  void mirrored(std::uint16_t vlan) {
    if (deletion_ && deletion_->vlan == vlan) {
      const bool isDeferred = std::exchange(deletion_, std::nullopt)->isDeferred;
      tell({.mac = mac_, .vlan = vlan, .kind = EventKind::removed, .flag = isDeferred});
      tell({.mac = mac_, .vlan = vlan, .kind = EventKind::dropped, .flag = isDeferred});
      Host& host = hosts_[vlan];
      host.isReceived = host.isMarked = host.isCopied = false;
      if (isDeferred) setGate(vlan, "notAnnounced", "the deferred deletion has deleted it");
    } else if (written_ && written_->vlan == vlan) {
      tell({.mac = mac_, .vlan = vlan, .kind = EventKind::copied, .vtep = written_->vtep});
      tellWritten();
      hosts_[vlan].isCopied = true;
    }
  }

  void convergenceIs(bool isConverging) {
    if (std::exchange(converging_, isConverging) == isConverging) return;
    tell({.kind = isConverging ? EventKind::converging : EventKind::converged});
  }

  void vniIs(std::uint32_t vni, EventKind kind, bool isInstantiated) {
    const std::pair now(kind, isInstantiated);
    const auto [at, isNew] = vnis_.try_emplace(vni, now);
    if (isNew || std::exchange(at->second, now) != now)
      tell({.kind = kind, .flag = isInstantiated, .vni = vni});
  }

  void setGate(std::uint16_t vlan, std::string_view gate, std::string why) {
    Host& host = hosts_[vlan];
    host.gate = gate;
    host.why = std::move(why);
  }

  // Events are told apart by their times, of which a number of seconds since 1970 has one for a
  // quarter of a microsecond.
  void tell(Event event) {
    const double last = story_.events.empty() ? 0 : story_.events.back().at;
    event.at = std::max(at_, std::nextafter(last, at_ + 1));
    story_.events.push_back(event);
  }

  void addFinding(std::uint16_t vlan, const Host& host) {
    const std::string place = "VLAN " + std::to_string(vlan) + " behind " + host.vtep.stringValue();
    if (host.isCopied)
      add("none", host.vni, vlan,
          "in the RIB: " + place + (host.isMarked ? ", marked for deletion" : ""));
    else if (host.isReceived)
      add("unexplained", host.vni, vlan, "taken in, but not copied into the RIB: " + place);
    else
      add(host.gate, host.vni, vlan,
          "not in the RIB in VLAN " + std::to_string(vlan) +
              (host.why.empty() ? "" : ": " + host.why));
  }

  void add(std::string_view gate, std::uint32_t vni, std::uint16_t vlan, const std::string& text) {
    story_.verdict.push_back({gate, vni, vlan,
                              (vni != 0 ? "VNI " + std::to_string(vni) + ": " : "") + text +
                                  ", as far as the ring tells"});
  }

  const Vorn::EthAddr mac_;
  const std::string macText_;
  RingStory& story_;
  double at_ = 0;

  // Of the ring.
  std::map<const Ringlog::Site*, HostStatement> statements_;
  std::optional<HostStatement> before_;
  std::optional<bool> converging_;
  std::optional<bool> controllerMode_;
  Handled handled_;
  bool isOfLearning_ = false;                     // what is cleaned up
  std::optional<Deletion> deletion_;              // that the mirror has not followed yet
  std::optional<Event> written_;                  // the same of an entry
  std::map<std::uint32_t, Announced> announced_;  // by VNI
  std::map<std::uint32_t, std::pair<EventKind, bool>> vnis_;
  std::size_t beginning_ = 0;  // among the events
  double beganAt_ = 0;

  // Of all rings.
  std::map<std::uint16_t, Host> hosts_;  // by VLAN
  bool isLearning_ = false;
  bool isNotMapped_ = false;
};

std::string endOf(const Contents& ring) {
  const std::string process = "process " + std::to_string(ring.process);
  switch (ring.writer) {
    case Ringlog::Writer::running:
      return process + " is running";
    case Ringlog::Writer::closed:
      return process + " has ended well";
    case Ringlog::Writer::gone:
      return process + " has crashed, or was killed";
    case Ringlog::Writer::left:
      return process + " has gone on in another file";
    case Ringlog::Writer::open:
    case Ringlog::Writer::untold:
      break;
  }
  return "whether process " + std::to_string(ring.process) + " still runs is not known";
}

void addRemarks(const std::vector<Contents>& rings, RingStory& story) {
  for (const Contents& ring : rings) {
    const std::string of = "the ring of process " + std::to_string(ring.process);
    if (const auto since = ring.wholeSince(hostLevel))
      story.remarks.push_back(of + " is whole since " + utcText(*since) +
                              ": the story may have begun before");
    if (ring.droppedMessages != 0)
      story.remarks.push_back(of + " had no room for " + std::to_string(ring.droppedMessages) +
                              " messages");
    if (!ring.problems.empty())
      story.remarks.push_back(of + " is damaged: parts of the story may be missing");
    if (std::ranges::find(ring.messages, hostLevel, &Message::level) == ring.messages.end())
      story.remarks.push_back(of + " has no messages of level 8, which tell of hosts");
  }
  story.remarks.push_back(rings.empty() ? "there is no ring" : endOf(rings.back()));
}

}  // namespace

RingStory ringStoryOf(const std::vector<Contents>& rings, const Vorn::EthAddr& mac) {
  RingStory story;
  Teller teller(mac, story);
  for (const Contents& ring : rings) {
    teller.begin(ring);
    for (const Message& message : ring.messages) teller.take(message);
    story.now = secondsOf(ring.messages.empty() ? ring.openedAt : ring.messages.back().time);
  }
  teller.conclude();
  addRemarks(rings, story);
  return story;
}

StoryTimes ringTimes() {
  return {[](double at) { return utcText(nanosecondsOf(at)); },
          [](double at) { return rfc3339Text(nanosecondsOf(at)); }};
}

}  // namespace Agent
