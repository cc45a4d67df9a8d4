// The VTEPs of every flood set in the layer-2 RIB, counted, and told as they come and go.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "agent/watch/FloodSetsWatch.h"
#include "framework/Moru/Ptr.h"
#include "model/Vorn/IpAddr.h"

namespace Agent {

class FloodDests final : private FloodSetsWatch::Listener {
 public:
  struct Change {
    Bridging::VlanId vlan;
    Vorn::EthAddr mac;
    Vorn::IpAddr vtep;
    bool isPresent;
  };
  using Sink = std::function<void(const Change&)>;

  // What is there already is told at once. `sink` may be empty: then they are counted alone.
  FloodDests(Moru::Ptr<L2Rib::SourceDirEntry const> floodSets, Sink sink);
  FloodDests(const FloodDests&) = delete;
  FloodDests& operator=(const FloodDests&) = delete;

  std::size_t floodSets() const { return sets_.size(); }

  // Those that are present: the flag of a destination says whether it is. Others than VTEPs are not
  // counted.
  std::size_t dests() const { return dests_; }

 private:
  using Key = std::pair<Bridging::VlanId, Vorn::EthAddr>;
  using Vteps = std::vector<Vorn::IpAddr>;  // ascending

  void floodSetChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) override;
  void floodTypeChanged(const Bridging::VlanId&, const Vorn::EthAddr&) override {}
  void destChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac,
                   const L2Rib::Dest& dest) override;

  Moru::Ptr<L2Rib::FloodSet const> find(const Bridging::VlanId& vlan,
                                        const Vorn::EthAddr& mac) const;
  void add(const Key& key, Vteps& vteps, const Vorn::IpAddr& vtep);
  void remove(const Key& key, Vteps& vteps, const Vorn::IpAddr& vtep);
  void tell(const Key& key, const Vorn::IpAddr& vtep, bool isPresent);

  const Moru::Ptr<L2Rib::SourceDirEntry const> floodSets_;
  const Sink sink_;
  std::map<Key, Vteps> sets_;
  std::size_t dests_ = 0;
  Moru::Ptr<FloodSetsWatch> watch_;  // last: it tells while it is made
};

}  // namespace Agent
