// Makes journals of any size: a switch with one VTI, whose controller announces hosts, moves them,
// and restarts.
#pragma once

#include <cstdint>
#include <ostream>

namespace Agent {

struct GenerateOptions {
  static constexpr std::uint32_t maxVnis = 4094;  // one for each VLAN
  static constexpr std::uint32_t maxHostsPerVni = 1 << 24;
  static constexpr std::uint32_t maxVteps = 65534;  // 10.1.0.1 and so on

  std::uint32_t vnis = 10;          // 1 to maxVnis, with the VLANs 1 to `vnis`, all imported
  std::uint32_t hostsPerVni = 100;  // host N of VNI V has the same MAC in every journal
  std::uint32_t vteps = 8;          // the remote ones, 1 to maxVteps
  std::uint64_t moves = 100;        // of hosts, from a VTEP to another
  std::uint32_t restarts = 1;       // of the controller
  std::uint64_t seed = 1;           // chooses the VTEPs, who moves, and who goes in a restart
};

// Writes the journal, the same for the same options everywhere. The client starts behind the
// hardware's BUM status; dumps follow the load, the moves, and both ends of each restart. Throws
// std::invalid_argument for options out of their range.
void generate(const GenerateOptions& options, std::ostream& out);

}  // namespace Agent
