#include "agent/command/FilterOptions.h"

#include <cstdint>
#include <string>
#include <vector>

#include "agent/command/CommandLine.h"

namespace Agent {

namespace {

std::uint32_t numberOf(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text));
}

template <class Address>
CLI::Validator address(const std::string& expected) {
  return matching(expected,
                  [](const std::string& text) { return Address::parse(text).has_value(); });
}

const char* const macText = "a MAC address, such as 02:00:00:00:00:01";

// Adds what is given to `values`, which a text that has passed the check has one of.
template <class Value, class ValueOf>
CLI::Option* add(CLI::App& command, const std::string& name, std::set<Value>& values,
                 const std::string& what, ValueOf valueOf) {
  const auto take = [&values, valueOf](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) values.insert(valueOf(text));
  };
  return command.add_option_function<std::vector<std::string>>(name, take, what)
      ->allow_extra_args(false);
}

}  // namespace

void addFilterOptions(CLI::App& command, Filter& filter) {
  const std::string of = "What is of this ";
  add(command, "--vlan", filter.vlans, of + "VLAN; of any, where given several times",
      [](const std::string& text) { return Bridging::VlanId(numberOf(text)); })
      ->check(wholeNumber(Bridging::VlanId::min, Bridging::VlanId::max))
      ->type_name("VLAN");
  add(command, "--vni", filter.vnis, of + "VNI, likewise",
      [](const std::string& text) { return Vxlan::VniExt(numberOf(text)); })
      ->check(wholeNumber(Vxlan::VniExt::min, Vxlan::VniExt::max))
      ->type_name("VNI");
  add(command, "--vtep", filter.vteps, of + "VTEP, likewise",
      [](const std::string& text) { return *Vorn::IpGenAddr::parse(text); })
      ->check(address<Vorn::IpGenAddr>("an IP address, such as 10.0.0.2"))
      ->type_name("IP");
  add(command, "--mac", filter.macs, of + "MAC, likewise; of several kinds, what is of each",
      [](const std::string& text) { return *Vorn::EthAddr::parse(text); })
      ->check(address<Vorn::EthAddr>(macText))
      ->type_name("MAC");
}

void addMacArgument(CLI::App& command, Filter& filter) {
  const auto take = [&filter](const std::string& text) {
    filter.macs.insert(*Vorn::EthAddr::parse(text));
  };
  command.add_option_function<std::string>("MAC", take, "The same as --mac")
      ->check(address<Vorn::EthAddr>(macText));
}

}  // namespace Agent
