#include "agent/report/DataText.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/base/JsonText.h"
#include "agent/story/Story.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

// Spans and extents lie flat in a row.
template <class Member>
void append(Json& row, const Member& member) {
  row.push_back(member);
}

void append(Json& row, const Span& span) {
  for (const double at : {span.from, span.to}) row.push_back(at);
  row.push_back(span.line);
}

void append(Json& row, const Extent& extent) {
  for (const std::uint32_t number : {extent.last, extent.least, extent.most}) row.push_back(number);
}

template <class... Members>
Json rowOf(const Members&... members) {
  Json row = Json::array();
  (append(row, members), ...);
  return row;
}

// What an event has not is 0.
template <class Number>
Json numberOrNull(Number number) {
  return number == 0 ? Json(nullptr) : Json(number);
}

Json jsonOf(const Window& window) {
  return rowOf(window.from, window.to ? Json(*window.to) : Json(nullptr));
}

Json jsonOf(const CountPoint& point) { return rowOf(point.span, point.hosts); }

Json jsonOf(const BatchPoint& point) {
  return rowOf(point.span, point.batches, point.hosts, point.floodDests, point.mostDeleted,
               point.longest);
}

Json jsonOf(const SlowBatch& slow) {
  const Batch& batch = slow.batch;
  return rowOf(batch.at, slow.line, batch.kind == Batch::Kind::unicast ? "hosts" : "flood sets",
               batch.seconds, batch.deleted, !batch.goesOn);
}

// Names that rows speak of by their places in a list.
struct Names {
  std::size_t placeOf(const std::string& name) {
    const auto [place, isNew] = places.try_emplace(name, names.size());
    if (isNew) names.push_back(name);
    return place->second;
  }

  std::unordered_map<std::string, std::size_t> places{};
  std::vector<std::string> names{};
};

// Holds the data while the pieces are taken, one after the other.
class DataText {
 public:
  DataText(ReportHead head, ReportData data) : head_(std::move(head)), data_(std::move(data)) {
    add([this](std::string& out) { writeHead(out); });
    add([this](std::string& out) { write(out, "state", listOf(data_.state)); });
    add([this](std::string& out) { writeBatches(out); });
    add([this](std::string& out) { writeMoves(out); });
    addParts("vnis", data_.vlans);
    addParts("vteps", data_.vteps);
    addStories();
    add([this](std::string& out) {
      write(out, "words", words_.names);
      write(out, "vtepNames", vteps_.names);
      out.back() = '}';
    });
  }
  DataText(const DataText&) = delete;
  DataText& operator=(const DataText&) = delete;

  bool next(std::string& out) {
    pieces_[next_++](out);
    return next_ < pieces_.size();
  }

 private:
  using Piece = std::function<void(std::string& out)>;

  void add(Piece piece) { pieces_.push_back(std::move(piece)); }

  template <class Key>
  void addParts(std::string_view name, const Parts<Key>& parts) {
    add([&parts, name](std::string& out) {
      out += jsonText(name) + ":{";
      write(out, "total", parts.total);
      write(out, "isMore", parts.isMore);
      out += "\"shown\":[";
    });
    for (const auto& part : parts.shown)
      add([this, &part, isFirst = &part == &parts.shown.front()](std::string& out) {
        out += (isFirst ? "" : ",") + jsonText(jsonOf(part));
      });
    add([](std::string& out) { out += "]},"; });
  }

  void addStories() {
    constexpr std::size_t storiesAtOnce = 64;
    const std::size_t all = data_.stories.size();
    add([this](std::string& out) {
      write(out, "areAllStories", data_.areAllStories);
      out += "\"stories\":{";
    });
    for (std::size_t from = 0; from < all; from += storiesAtOnce)
      add([this, from, to = std::min(from + storiesAtOnce, all)](std::string& out) {
        for (std::size_t i = from; i < to; ++i) write(out, data_.stories[i]);
        if (to == data_.stories.size()) out.pop_back();  // no comma behind the last
      });
    add([](std::string& out) { out += "},"; });
  }

  // [at, line, word, by the deferred deletion, VLAN, VNI, VTEP, former VTEP]
  Json rowOfEvent(const Event& event, std::string_view word, const Vorn::IpAddr& formerVtep) {
    const bool isDeferred =
        event.flag && (event.kind == EventKind::dropped || event.kind == EventKind::removed ||
                       event.kind == EventKind::destDel);
    return rowOf(event.at, event.line, words_.placeOf(std::string(word)), isDeferred ? 1 : 0,
                 numberOrNull(event.vlan), numberOrNull(event.vni), placeOf(event.vtep),
                 placeOf(formerVtep));
  }

  // [MAC, event]
  Json jsonOf(const Happening& happening) {
    const auto& [event, former] = happening;
    const bool isMove = former != Vorn::IpAddr();
    return rowOf(event.mac.stringValue(),
                 rowOfEvent(event, isMove ? "moved" : storyOf({event}).front().what, former));
  }

  Json placeOf(const Vorn::IpAddr& vtep) {
    return vtep == Vorn::IpAddr() ? Json(nullptr) : Json(vteps_.placeOf(vtep.stringValue()));
  }

  Json jsonOf(const StatePoint& point) {
    return rowOf(point.span, point.hosts, point.marked, point.floodDests, point.events,
                 point.last ? jsonOf(*point.last) : Json(nullptr));
  }

  template <class Key>
  Json jsonOf(const Part<Key>& part) {
    return {{"name", nameOf(part.key)}, {"changes", part.changes}, {"rows", listOf(part.points)}};
  }

  template <class Plain>
  Json jsonOf(const Plain& plain) {
    if constexpr (requires { Agent::jsonOf(plain); })
      return Agent::jsonOf(plain);
    else
      return plain;
  }

  template <class Items>
  Json listOf(const Items& items) {
    Json list = Json::array();
    for (const auto& item : items) list.push_back(jsonOf(item));
    return list;
  }

  Json jsonOf(const Windows& windows) {
    return {{"left", windows.left()}, {"rows", listOf(windows.windows())}};
  }

  std::string nameOf(const Vorn::IpAddr& vtep) { return vtep.stringValue(); }

  std::string nameOf(const Bridging::VlanId& vlan) {
    std::string name = "VLAN " + std::to_string(vlan.value());
    const auto vni = head_.vnis.find(vlan);
    if (vni == head_.vnis.end()) return name;
    return "VNI " + std::to_string(vni->second) + " (" + name + ')';
  }

  static void write(std::string& out, std::string_view name, const Json& json) {
    out += jsonText(name) + ':' + jsonText(json) + ',';
  }

  void write(std::string& out, const std::pair<Vorn::EthAddr, KeptStory>& each) {
    const auto& [mac, story] = each;
    Json events = Json::array();
    for (const StoryLine& line : storyOf(story.events))
      events.push_back(rowOfEvent(line.event, line.what, line.from.value_or(Vorn::IpAddr())));
    write(out, mac.stringValue(),
          {{"left", story.left}, {"isWhole", story.isWhole}, {"events", std::move(events)}});
  }

  void writeHead(std::string& out) {
    out += '{';
    write(out, "title", head_.title);
    write(out, "source", head_.source);
    write(out, "version", head_.version);
    write(out, "epoch", head_.epoch ? Json(*head_.epoch) : Json(nullptr));
    write(out, "from", data_.from);
    write(out, "to", data_.to);
    write(out, "lines", data_.lines);
    write(out, "windows",
          {{"convergence", jsonOf(data_.convergence)},
           {"hostDeletion", jsonOf(data_.hostDeletion)},
           {"floodDeletion", jsonOf(data_.floodDeletion)},
           {"holds", jsonOf(data_.holds)}});
  }

  void writeBatches(std::string& out) {
    write(out, "batches", listOf(data_.batches));
    write(out, "slowest", {{"total", data_.batchesTotal}, {"rows", listOf(data_.slowest)}});
  }

  void writeMoves(std::string& out) {
    write(out, "moves", {{"total", data_.movesTotal}, {"rows", listOf(data_.moves)}});
  }

  const ReportHead head_;
  const ReportData data_;
  Names words_;
  Names vteps_;
  std::vector<Piece> pieces_;
  std::size_t next_ = 0;
};

}  // namespace

Pieces dataText(ReportHead head, ReportData data) {
  const auto text = std::make_shared<DataText>(std::move(head), std::move(data));
  return [text](std::string& out) { return text->next(out); };
}

}  // namespace Agent
