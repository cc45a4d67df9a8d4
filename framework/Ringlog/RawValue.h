// The forms in which values of the network are recorded. A type says that it is one of them by a
// function beside it, traceValue(const T&), that returns it.
#pragma once

#include <array>
#include <cstdint>

namespace Ringlog {

struct EthValue {
  std::array<std::uint8_t, 6> bytes;
};

struct Ip4Value {
  std::uint32_t address;  // the first byte of the address is the highest
};

// An IPv4 address is the first four bytes.
struct IpValue {
  std::uint8_t isIp6;
  std::array<std::uint8_t, 16> bytes;
};

struct MacVlanValue {
  EthValue mac;
  std::uint16_t vlan;
};

}  // namespace Ringlog
