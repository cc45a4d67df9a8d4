#include "agent/live/Answers.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/base/JsonText.h"
#include "agent/base/Text.h"
#include "agent/view/FloodSetText.h"
#include "agent/view/JsonView.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

std::string lineOf(const Json& object) { return jsonText(object) + '\n'; }

// Some milliseconds' worth of lines at a time.
template <class Record, class ToJson>
Answer answerOf(std::vector<Record> records, ToJson toJson) {
  constexpr std::size_t recordsAtOnce = 512;
  const auto all = std::make_shared<std::vector<Record>>(std::move(records));
  return [all, toJson, next = std::size_t{0}](std::string& out) mutable {
    const std::size_t end = std::min(next + recordsAtOnce, all->size());
    for (; next < end; ++next) out += lineOf(toJson((*all)[next]));
    return next < all->size();
  };
}

struct HostRecord {
  Bridging::VlanId vlan;
  Vorn::EthAddr mac;
  std::optional<Vxlan::VniExt> vni;
  Vorn::IpGenAddr vtep;
  bool marked;
  bool waiting;
};

Json jsonOf(const std::optional<Vxlan::VniExt>& vni) {
  return vni ? Json(vni->value()) : Json(nullptr);
}

}  // namespace

Answer hostsAnswer(const EmbeddedClient& embedded, const WithdrawalGate& gate,
                   const Filter& filter) {
  const StateStore& store = embedded.store();
  const VlanToVni vnis = vlanToVni(*store.vlanVniMaps);
  std::vector<HostRecord> records;
  for (const auto& [key, host] : store.l2RibZepInput->host()) {
    const auto vni = vniOf(vnis, key.vlan);
    const Vorn::IpGenAddr vtep = host.dest.vtepAddr(0);
    if (!filter.admits(key.vlan, vni) || !filter.admits(key.mac) || !filter.admitsAnyOf({&vtep, 1}))
      continue;
    records.push_back({key.vlan, key.mac, vni, vtep,
                       embedded.client() && embedded.client()->hostTable()->isMarked(key),
                       vni && gate.isWaiting(*vni, key.mac)});
  }
  std::ranges::sort(records, {},
                    [](const HostRecord& each) { return std::tuple(each.vlan, each.mac); });
  return answerOf(std::move(records), [](const HostRecord& each) -> Json {
    return {{"mac", each.mac.stringValue()}, {"vlan", each.vlan.value()},
            {"vni", jsonOf(each.vni)},       {"vtep", each.vtep.stringValue()},
            {"marked", each.marked},         {"waiting", each.waiting}};
  });
}

Answer floodsAnswer(const EmbeddedClient& embedded, const Filter& filter) {
  Snapshot snapshot = takeSnapshot("", 0, {.floodSets = embedded.store().zepSde}, {});
  snapshot.vlanToVni = vlanToVni(*embedded.store().vlanVniMaps);
  filterBy(filter, snapshot);
  std::vector<std::pair<std::optional<Vxlan::VniExt>, VlanFloodSetSnapshot>> records;
  for (const VlanFloodSetSnapshot& each : *snapshot.floodSets)
    if (each.floodSet) records.emplace_back(vniOf(*snapshot.vlanToVni, each.vlan), each);
  return answerOf(std::move(records), [](const auto& each) -> Json {
    const auto& [vni, flood] = each;
    return {{"vlan", flood.vlan.value()},
            {"vni", jsonOf(vni)},
            {"mac", flood.floodSet->mac.stringValue()},
            {"type", static_cast<std::uint32_t>(flood.floodSet->type)},
            {"vteps", destTexts(*flood.floodSet)}};
  });
}

Answer dumpAnswer(Snapshot snapshot) {
  struct State {
    explicit State(Snapshot taken) : snapshot(std::move(taken)) {}

    const Snapshot snapshot;
    DumpPieces pieces{snapshot};
  };
  return [state = std::make_shared<State>(std::move(snapshot))](std::string& out) {
    std::ostringstream piece;
    const bool more = state->pieces.print(piece);
    out += piece.view();
    return more;
  };
}

Answer problemsAnswer(const Problems& problems) {
  std::vector<std::pair<std::string, Problem>> records(problems.all().begin(),
                                                       problems.all().end());
  return answerOf(std::move(records), [](const auto& each) -> Json {
    const auto& [what, problem] = each;
    return {{"since", rfc3339Text(problem.since)},
            {"what", what},
            {"value", problem.value},
            {"why", problem.why}};
  });
}

Answer linesAnswer(std::vector<Json> objects) {
  return answerOf(std::move(objects), [](const Json& object) { return object; });
}

Answer lineAnswer(const nlohmann::ordered_json& object) {
  return [line = lineOf(object)](std::string& out) {
    out += line;
    return false;
  };
}

}  // namespace Agent
