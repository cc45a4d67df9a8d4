// The data of a report as the page reads it: one object of JSON, without line breaks, in ASCII.
//
// Rows are arrays, for there are many; what their places mean stands beside what writes them, and
// in the page's own script. It is no interface for other programs: those read dumps.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "agent/report/Collector.h"

namespace Agent {

struct ReportHead {
  std::string title{};            // what the report is of
  std::string source{};           // what `vxlan-agent explain MAC` is to be given for it
  std::optional<double> epoch{};  // Unix time of the time 0, in seconds; none of a recording
  std::map<Bridging::VlanId, std::uint32_t> vnis{};  // of the VLANs
  std::string version{};
};

// Appends the next piece; false when that was the last. A piece takes a millisecond or so.
using Pieces = std::function<bool(std::string& out)>;

Pieces dataText(ReportHead head, ReportData data);

}  // namespace Agent
