// What the controller asks of the flood sets of one VLAN: the tables of all the VNIs that the VTIs
// map the VLAN to. One VTI's VLAN may well be another's, too, and stand for another VNI there: what
// any of them asks for stays.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "Vxlan/ZepPerVniFdbStatusSm.h"
#include "framework/Moru/Ptr.h"
#include "model/L2Rib/Dest.h"
#include "model/L2Rib/FloodSet.h"
#include "model/Vorn/EthAddr.h"

namespace Vxlan {

class FloodDemand {
 public:
  using PerVniSms = std::vector<Moru::Ptr<ZepPerVniFdbStatusSm>>;

  explicit FloodDemand(PerVniSms machines) : machines_(std::move(machines)) {}

  // Whether nobody asks: the VLAN has no VNI, or none that is followed.
  bool empty() const { return machines_.empty(); }

  bool has(const Vorn::EthAddr& mac) const;
  bool has(const Vorn::EthAddr& mac, const L2Rib::Dest& dest) const;

  // The destinations of a flood set, beside the VTEPs of a list that asks for it. All that a list
  // holds stands in the flood set, and nothing else once that has been swept; where two VNIs share
  // the VLAN, that may fail and be right. The texts are the checks that failed.
  struct DestCount {
    std::size_t dests;
    std::size_t vteps;
    bool isMultiPath;

    std::string_view atLeastText() const;
    std::string_view equalText() const;
  };
  std::vector<DestCount> destCounts(const L2Rib::FloodSet& floodSet) const;

 private:
  PerVniSms machines_;
};

}  // namespace Vxlan
