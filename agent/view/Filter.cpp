#include "agent/view/Filter.h"

#include <algorithm>
#include <vector>

#include "agent/base/Text.h"
#include "agent/view/Snapshot.h"

namespace Agent {

namespace {

template <class Value>
bool isAmong(const std::set<Value>& wanted, const Value& value) {
  return wanted.empty() || wanted.contains(value);
}

template <class Value, class ToText>
void appendKind(std::string& text, const char* kind, const std::set<Value>& values, ToText toText) {
  std::string listed;
  for (const Value& value : values) appendTo(listed, " or ", toText(value));
  if (!listed.empty()) appendTo(text, ", ", kind + (' ' + listed));
}

bool isAnyOf(const std::set<Vxlan::VniExt>& vnis, const std::set<Bridging::VlanId>& vlans,
             const VlanToVni& vlanToVni, const Vxlan::VniExt& vni) {
  if (!isAmong(vnis, vni)) return false;
  return vlans.empty() || std::ranges::any_of(vlans, [&](const Bridging::VlanId& vlan) {
           return vniOf(vlanToVni, vlan) == vni;
         });
}

}  // namespace

bool Filter::admits(const Bridging::VlanId& vlan, const std::optional<Vxlan::VniExt>& vni) const {
  return isAmong(vlans, vlan) && (vnis.empty() || (vni && vnis.contains(*vni)));
}

bool Filter::admits(const Vorn::EthAddr& mac) const { return isAmong(macs, mac); }

bool Filter::admitsAnyOf(std::span<const Vorn::IpGenAddr> each) const {
  return vteps.empty() || std::ranges::any_of(each, [this](const Vorn::IpGenAddr& vtep) {
           return vteps.contains(vtep);
         });
}

std::string textOf(const Filter& filter) {
  const auto number = [](const auto& value) { return std::to_string(value.value()); };
  const auto address = [](const auto& value) { return value.stringValue(); };
  std::string text;
  appendKind(text, "VLAN", filter.vlans, number);
  appendKind(text, "VNI", filter.vnis, number);
  appendKind(text, "VTEP", filter.vteps, address);
  appendKind(text, "MAC", filter.macs, address);
  return text;
}

void filterBy(const Filter& filter, Snapshot& snapshot) {
  if (filter.empty()) return;
  const VlanToVni vlanToVni = snapshot.vlanToVni.value_or(VlanToVni());
  const auto admitsVlan = [&](const Bridging::VlanId& vlan) {
    return filter.admits(vlan, vniOf(vlanToVni, vlan));
  };
  const auto admitsHost = [&](const Bridging::MacVlanPair& key, const Vorn::IpGenAddr& vtep) {
    return admitsVlan(key.vlan) && filter.admits(key.mac) && filter.admitsAnyOf({&vtep, 1});
  };
  const auto admitsFloodSet = [&](const FloodSetSnapshot& floodSet) {
    return filter.admits(floodSet.mac) && filter.admitsAnyOf(floodSet.vteps);
  };
  if (auto& client = snapshot.client) {
    std::erase_if(client->vccImportVlans, [&](const auto& vlan) { return !admitsVlan(vlan); });
    std::erase_if(client->vnis, [&](const auto& vni) {
      return !isAnyOf(filter.vnis, filter.vlans, vlanToVni, vni);
    });
    std::erase_if(client->hostTable.entries,
                  [&](const auto& entry) { return !admitsHost(entry.key, entry.vtepAddr); });
  }
  if (snapshot.hosts)
    std::erase_if(*snapshot.hosts,
                  [&](const auto& host) { return !admitsHost(host.key, host.dest.vtepAddr(0)); });
  if (snapshot.floodSets)
    std::erase_if(*snapshot.floodSets, [&](const VlanFloodSetSnapshot& each) {
      const bool isBare = !each.floodSet && filter.macs.empty() && filter.vteps.empty();
      return !admitsVlan(each.vlan) || !(each.floodSet ? admitsFloodSet(*each.floodSet) : isBare);
    });
  snapshot.filter = filter;
}

}  // namespace Agent
