// Which network interfaces are access ports, and of which VNIs.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Attachments.h"
#include "model/Vxlan/VniExt.h"

namespace Agent::Kernel {

// The interface with the frames of an attachment: the port itself, or its sub-interface for a tag.
std::string interfaceOf(const Attachment& attachment);

class PortBindings {
 public:
  struct Changed {
    std::set<Vxlan::VniExt> vnis;
    std::set<std::string> interfaces;
  };

  // Returns what is bound now and was not, and the other way round.
  Changed portsAre(const std::vector<Attachment>& ports);

  // In the order of their names and tags.
  const std::vector<Attachment>& of(const Vxlan::VniExt& vni) const;

  // The VNI of an interface, nothing: it is no access port; and of a port's sub-interfaces.
  std::optional<Vxlan::VniExt> vniOf(const std::string& interface) const;
  const std::set<Vxlan::VniExt>& taggedAt(const std::string& port) const;

 private:
  std::set<Attachment> all_;
  std::map<Vxlan::VniExt, std::vector<Attachment>> byVni_;
  std::map<std::string, Vxlan::VniExt> byInterface_;
  std::map<std::string, std::set<Vxlan::VniExt>> tagged_;
};

}  // namespace Agent::Kernel
