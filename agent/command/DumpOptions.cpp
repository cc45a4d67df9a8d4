#include "agent/command/DumpOptions.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "agent/command/CommandLine.h"

namespace Agent {

namespace {

std::uint32_t numberOf(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text));
}

CLI::Validator ipAddress() {
  return matching("an IP address, such as 10.0.0.2",
                  [](const std::string& text) { return Vorn::IpGenAddr::parse(text).has_value(); });
}

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

void addRowsOption(CLI::App& command, TableOptions& table) {
  const auto take = [&table](std::uint32_t number) {
    table.mostRows = number == 0 ? TableOptions::all : number;
  };
  command.add_option_function<std::uint32_t>("--rows", take, "Most rows of each table; 0 is all")
      ->check(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("NUMBER")
      ->default_str(std::to_string(table.mostRows));
}

void addColourOption(CLI::App& command, TableOptions& table) {
  table.colours = wantsColours("auto");
  const auto take = [&table](const std::string& when) { table.colours = wantsColours(when); };
  command
      .add_option_function<std::string>("--color", take,
                                        "auto (the default), always or never; auto heeds NO_COLOR")
      ->check(oneOf({"auto", "always", "never"}))
      ->type_name("WHEN");
}

}  // namespace

void addDumpOptions(CLI::App& command, OutputOptions& output) {
  addFormatOption(command, output.format);
  addRowsOption(command, output.table);
  addColourOption(command, output.table);
  addFilterOptions(command, output.filter);
}

void addFormatOption(CLI::App& command, Format& format) {
  const auto take = [&format](const std::string& name) {
    format = name == "json" ? Format::json : Format::table;
  };
  command
      .add_option_function<std::string>(
          "--format", take, "table, for people (the default), or json, an object a line")
      ->check(oneOf({"table", "json"}))
      ->type_name("FORMAT");
}

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
      ->check(ipAddress())
      ->type_name("IP");
  add(command, "--mac", filter.macs, of + "MAC, likewise; of several kinds, what is of each",
      [](const std::string& text) { return *Vorn::EthAddr::parse(text); })
      ->check(macAddress())
      ->type_name("MAC");
}

void addMacArgument(CLI::App& command, Filter& filter) {
  const auto take = [&filter](const std::string& text) {
    filter.macs.insert(*Vorn::EthAddr::parse(text));
  };
  command.add_option_function<std::string>("MAC", take, "The same as --mac")->check(macAddress());
}

}  // namespace Agent
