// What a trace message tells of: by the kinds of its values and by what the statement calls them,
// and not by how they look.
#pragma once

#include <cstdint>

#include "framework/Ringlog/Reader.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

// A MAC address, with or without a VLAN; also one that stands in a text that was recorded, as that
// of a failed assertion.
bool tellsOfMac(const Ringlog::Message& message, const Vorn::EthAddr& mac);

// The VLAN of a MAC address, or a number that the statement calls a VLAN.
bool tellsOfVlan(const Ringlog::Message& message, std::uint32_t vlan);

// A number that the statement calls a VNI, or the entry that the controller publishes it under.
bool tellsOfVni(const Ringlog::Message& message, std::uint32_t vni);

}  // namespace Agent
