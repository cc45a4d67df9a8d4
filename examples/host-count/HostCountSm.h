// A machine of the smallest kind that shows all that machines do: it counts the received hosts
// behind each VTEP, and publishes the counts at most once a second.
//
//   received host table ──> HostCountSm ──> host counts
//                               ^
//                          publish clock
//
// Event sources: a change of an entry of the table, and the clock. Counting happens at once; the
// first change after a publication arms the clock, which publishes and is not armed again until
// there is something new to say.
#pragma once

#include <cstdint>

#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Input.h"
#include "model/Vxlan/ReceivedHostTable.h"

namespace Example {

// The output: the number of hosts behind each VTEP that has any.
class HostCounts final : public Moru::EntityOf<HostCounts> {
 public:
  using Counts = Moru::KeyedAttribute<Moru::HashMap2018, Vorn::IpGenAddr, std::uint32_t, 1>;
  Counts count{this};
  Counts::Is countIs{count};
  Counts::Del countDel{count};
};

class HostCountSm final : public Moru::Machine {
 public:
  // Both are needed; the machine only reads the table, and is the only one to write the counts.
  HostCountSm(const Moru::Ptr<Vxlan::ReceivedHostTable const>& table,
              Moru::Ptr<HostCounts> hostCounts);
  ~HostCountSm() override;

  class MoruHostTable : public Moru::Reactor<Vxlan::ReceivedHostTable::NotifieeConst, HostCountSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleHostTable_receivedEntry(Bridging::MacVlanPair key);
  };

  class MoruPublishClock : public Moru::Reactor<Moru::Clock::NotifieeConst, HostCountSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handlePublishClock_timeMin();
  };

  Moru::Input<MoruHostTable> hostTable{this};
  Moru::Input<MoruHostTable>::Is hostTableIs{hostTable};

  Moru::Input<MoruPublishClock> publishClock{this};
  Moru::Input<MoruPublishClock>::Is publishClockIs{publishClock};

  void handleInitialized();
  void handleReceivedEntry(const Bridging::MacVlanPair& key);
  void handlePublishClock();

 private:
  void moveHost(const Bridging::MacVlanPair& key, const Vorn::IpGenAddr& vtep);

  static constexpr double publishInterval = 1.0;  // seconds

  Moru::HashMap2018<Bridging::MacVlanPair, Vorn::IpGenAddr> vtepOfHost_;
  Moru::HashMap2018<Vorn::IpGenAddr, std::uint32_t> hostsOfVtep_;
  Moru::Ptr<HostCounts> hostCounts_;
};

}  // namespace Example
