// Where a host of the layer-2 RIB is reached: the VTEPs behind an interface.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "model/L2Rib/DestType.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpGenAddr.h"

namespace L2Rib {

using CiVtepIndex = std::size_t;

class CiDest {
 public:
  static constexpr std::size_t maxVtepAddrs = 2;

  CiDest() = default;
  explicit CiDest(DestType type) : type_(type) {}

  DestType type() const { return type_; }

  const Vorn::IntfId& intfId() const { return intfId_; }
  void intfIdIs(const Vorn::IntfId& intfId) { intfId_ = intfId; }

  // The length of the list, and its elements; beyond its end stands 0.0.0.0.
  std::size_t vtepAddrs() const { return vtepAddrs_; }
  Vorn::IpGenAddr vtepAddr(CiVtepIndex index) const;

  // Sets an element, making the list as long as that needs. Throws SizeException, and changes
  // nothing, when it would be longer than maxVtepAddrs.
  void vtepAddrIs(CiVtepIndex index, const Vorn::IpGenAddr& address);

  friend bool operator==(const CiDest&, const CiDest&) = default;

 private:
  DestType type_ = DestType::none;
  Vorn::IntfId intfId_;
  std::array<Vorn::IpGenAddr, maxVtepAddrs> vtepAddr_;
  std::uint8_t vtepAddrs_ = 0;
};

// "type 1 intf Vxlan1 vteps 10.0.0.2"
std::ostream& operator<<(std::ostream& out, const CiDest& dest);

}  // namespace L2Rib
