// What the running agent remembers of its hosts, for `vxlan-agent explain`: what the database has
// said of them, what gate and client have made of that, and what has become of it in the kernel.
#pragma once

#include <functional>

#include "agent/gate/WithdrawalGate.h"
#include "agent/kernel/DataPlane.h"
#include "agent/live/Answers.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/story/Chronicle.h"
#include "agent/story/Verdict.h"
#include "agent/story/Witness.h"

namespace Agent {

class Stories {
 public:
  // It takes the gate's events for itself. Both must outlive it. All that it comes to know is told
  // to `sinks` as well.
  Stories(const EmbeddedClient& embedded, WithdrawalGate& gate, Witness::Sinks sinks);

  const Witness& witness() const { return witness_; }

  // As Witness has them.
  void comes(const Change& change) { witness_.comes(change); }
  void clientChanged() { witness_.clientChanged(); }

  void kernelHas(Kernel::Fdb::Happening what, const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                 const Vorn::IpAddr& vtep);

  // The story of a MAC and the verdict, as StoryView has them. `plane` is null where no kernel is
  // programmed.
  Answer answer(const Vorn::EthAddr& mac, const StoryScope& scope,
                const Kernel::DataPlane* plane) const;

 private:
  void add(const Event& event);
  std::vector<Finding> findings(const Vorn::EthAddr& mac, const StoryScope& scope,
                                const Kernel::DataPlane* plane) const;

  const EmbeddedClient& embedded_;
  const WithdrawalGate& gate_;
  const Witness::Sinks sinks_;
  Chronicle chronicle_;
  Witness witness_;
};

}  // namespace Agent
