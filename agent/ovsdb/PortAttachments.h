// Which ports of ours are attached to which VNIs, as the rows say.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Attachments.h"
#include "agent/base/Problems.h"
#include "agent/ovsdb/Rows.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Ovsdb {

// A port whose name is that of no network interface, or of another port of ours, is a problem, and
// left out.
class PortAttachments {
 public:
  using Sink = std::function<void(const Attachments&)>;
  // Of a logical switch, the VNI that its ports are attached to; 0: none.
  using VniOf = std::function<std::uint32_t(Slot logicalSwitch)>;

  PortAttachments(const Rows& rows, VniOf vniOf, Sink sink, Problems& problems);

  // Has all of these ports looked at, by advance().
  void begin(std::vector<Slot> ports, std::vector<Vorn::IpAddr> ownAddresses);

  // Looks at a port. Returns false when all have been: what has become different has been told.
  bool advance();

 private:
  void attach(Slot port);
  std::string complaintOf(Slot port) const;
  void tell();

  const Rows& rows_;
  const VniOf vniOf_;
  const Sink sink_;
  Problems& problems_;

  bool isDue_ = false;
  std::vector<Slot> ports_;  // to be looked at, the first in order behind the others
  Slot previous_ = noSlot;   // the port that has been attached last
  Attachments found_;
  std::set<std::string> wrong_;  // places of problems

  Attachments told_;
  std::set<std::string> toldWrong_;
};

}  // namespace Agent::Ovsdb
