#include "agent/ovsdb/PortAttachments.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "agent/base/Text.h"

namespace Agent::Ovsdb {

namespace {

// As the kernel takes them.
bool isInterfaceName(std::string_view name) {
  constexpr std::size_t longest = 15;
  const auto isWrong = [](char each) {
    constexpr unsigned char deleted = 0x7f;
    const auto byte = static_cast<unsigned char>(each);
    return byte <= ' ' || byte == deleted || each == '/' || each == ':';
  };
  return !name.empty() && name.size() <= longest && name != "." && name != ".." &&
         std::ranges::none_of(name, isWrong);
}

}  // namespace

PortAttachments::PortAttachments(const Rows& rows, VniOf vniOf, Sink sink, Problems& problems)
    : rows_(rows), vniOf_(std::move(vniOf)), sink_(std::move(sink)), problems_(problems) {}

void PortAttachments::begin(std::vector<Slot> ports, std::vector<Vorn::IpAddr> ownAddresses) {
  const auto rank = [this](Slot port) {
    const auto& entry = rows_.physicalPorts[port];
    return std::pair<std::string_view, Uuid>(entry.row.name, entry.uuid);
  };
  std::ranges::sort(ports, std::ranges::greater(), rank);
  isDue_ = true;
  ports_ = std::move(ports);
  previous_ = noSlot;
  found_ = {std::move(ownAddresses), {}};
}

bool PortAttachments::advance() {
  if (!isDue_) return false;
  if (ports_.empty()) {
    isDue_ = false;
    tell();
    return false;
  }
  attach(ports_.back());
  ports_.pop_back();
  return true;
}

void PortAttachments::attach(Slot port) {
  const auto& entry = rows_.physicalPorts[port];
  if (!entry.row.vlanBindings || entry.row.vlanBindings->empty()) return;
  if (const std::string complaint = complaintOf(port); !complaint.empty()) {
    const std::string place = "Physical_Port " + entry.uuid.stringValue() + ": interface";
    problems_.raise(place, beginningOf(entry.row.name), complaint);
    wrong_.insert(place);
    return;
  }
  previous_ = port;
  eachBinding(entry.row, [&](std::uint16_t tag, Slot logicalSwitch) {
    const std::uint32_t vni = vniOf_(logicalSwitch);
    if (vni != 0) found_.ports.push_back({entry.row.name, tag, Vxlan::VniExt(vni)});
  });
}

std::string PortAttachments::complaintOf(Slot port) const {
  const std::string& name = rows_.physicalPorts[port].row.name;
  if (!isInterfaceName(name))
    return "the name of a network interface: 1 to 15 bytes, no blanks, slashes or colons";
  if (previous_ == noSlot || rows_.physicalPorts[previous_].row.name != name) return "";
  return "a name of its own: it is that of " + rows_.physicalPorts[previous_].uuid.stringValue();
}

void PortAttachments::tell() {
  for (const std::string& place : toldWrong_)
    if (!wrong_.contains(place)) problems_.cure(place);
  toldWrong_ = std::exchange(wrong_, {});
  if (found_ == told_) return;
  told_ = std::move(found_);
  sink_(told_);
}

}  // namespace Agent::Ovsdb
