#include "agent/watch/HostDeletions.h"

#include <utility>

namespace Agent {

HostDeletions::HostDeletions(const Moru::Ptr<L2Rib::HostInput const>& hosts,
                             const BatchWatch& batches)
    : batches_(batches), there_(hosts->host().size()) {
  hostsIs_(hosts);
}

HostDeletions::~HostDeletions() { moruDoZombieReactors(true); }

// By the size, and not by asking for the host that has changed: that would be a lookup for each.
void HostDeletions::MoruHosts::onAttribute(Moru::AttributeId, const void*) {
  HostDeletions& counts = *machine();
  const std::size_t before = std::exchange(counts.there_, notifier()->host().size());
  if (counts.there_ >= before) return;
  std::uint64_t& count = counts.batches_.isInBatch() ? counts.deferred_ : counts.atOnce_;
  count += before - counts.there_;
}

}  // namespace Agent
