#include "agent/kernel/PortBindings.h"

#include <algorithm>
#include <iterator>

namespace Agent::Kernel {

std::string interfaceOf(const Attachment& attachment) {
  if (attachment.tag == 0) return attachment.port;
  return attachment.port + '.' + std::to_string(attachment.tag);
}

PortBindings::Changed PortBindings::portsAre(const std::vector<Attachment>& ports) {
  std::set<Attachment> now(ports.begin(), ports.end());
  std::vector<Attachment> differing;
  std::set_symmetric_difference(all_.begin(), all_.end(), now.begin(), now.end(),
                                std::back_inserter(differing));
  Changed changed;
  for (const Attachment& attachment : differing) {
    changed.vnis.insert(attachment.vni);
    changed.interfaces.insert(interfaceOf(attachment));
  }
  all_ = std::move(now);
  byVni_.clear();
  byInterface_.clear();
  tagged_.clear();
  for (const Attachment& attachment : all_) {
    byVni_[attachment.vni].push_back(attachment);
    byInterface_.emplace(interfaceOf(attachment), attachment.vni);
    if (attachment.tag != 0) tagged_[attachment.port].insert(attachment.vni);
  }
  return changed;
}

const std::vector<Attachment>& PortBindings::of(const Vxlan::VniExt& vni) const {
  static const std::vector<Attachment> none;
  const auto at = byVni_.find(vni);
  return at == byVni_.end() ? none : at->second;
}

std::optional<Vxlan::VniExt> PortBindings::vniOf(const std::string& interface) const {
  const auto at = byInterface_.find(interface);
  if (at == byInterface_.end()) return std::nullopt;
  return at->second;
}

const std::set<Vxlan::VniExt>& PortBindings::taggedAt(const std::string& port) const {
  static const std::set<Vxlan::VniExt> none;
  const auto at = tagged_.find(port);
  return at == tagged_.end() ? none : at->second;
}

}  // namespace Agent::Kernel
