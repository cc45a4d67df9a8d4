// What is monitored of a hardware_vtep database: the one table of its names. The session asks for
// it, and checks that the server has it; the import reads the rows by the same names.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Agent::Ovsdb {

inline constexpr std::string_view databaseName = "hardware_vtep";

// Position in `monitoredTables`. Ascending, a row refers to none but of the tables before its own.
enum class Table : std::uint8_t {
  logicalSwitch,
  physicalPort,
  physicalSwitch,
  physicalLocator,
  physicalLocatorSet,
  ucastMacsRemote,
  mcastMacsRemote,
};

struct ColumnSchema {
  std::string_view name;
  // Older schemas do not have it: it is monitored where it is, and left out of all rows elsewhere.
  bool optional = false;
};

struct TableSchema {
  std::string_view name;
  std::span<const ColumnSchema> columns;
};

namespace Columns {
inline constexpr ColumnSchema name = {"name"};
inline constexpr ColumnSchema tunnelKey = {"tunnel_key"};
inline constexpr ColumnSchema replicationMode = {"replication_mode", true};
inline constexpr ColumnSchema vlanBindings = {"vlan_bindings"};
inline constexpr ColumnSchema tunnelIps = {"tunnel_ips"};
inline constexpr ColumnSchema ports = {"ports"};
inline constexpr ColumnSchema dstIp = {"dst_ip"};
inline constexpr ColumnSchema encapsulationType = {"encapsulation_type"};
inline constexpr ColumnSchema locators = {"locators"};
inline constexpr ColumnSchema mac = {"MAC"};
inline constexpr ColumnSchema locator = {"locator"};
inline constexpr ColumnSchema locatorSet = {"locator_set"};
inline constexpr ColumnSchema logicalSwitch = {"logical_switch"};

inline constexpr std::array ofLogicalSwitch = {name, tunnelKey, replicationMode};
inline constexpr std::array ofPhysicalPort = {name, vlanBindings};
inline constexpr std::array ofPhysicalSwitch = {name, tunnelIps, ports};
inline constexpr std::array ofPhysicalLocator = {dstIp, encapsulationType};
inline constexpr std::array ofPhysicalLocatorSet = {locators};
inline constexpr std::array ofUcastMacsRemote = {mac, locator, logicalSwitch};
inline constexpr std::array ofMcastMacsRemote = {mac, locatorSet, logicalSwitch};
}  // namespace Columns

// By Table.
inline constexpr std::array monitoredTables = {
    TableSchema{"Logical_Switch", Columns::ofLogicalSwitch},
    TableSchema{"Physical_Port", Columns::ofPhysicalPort},
    TableSchema{"Physical_Switch", Columns::ofPhysicalSwitch},
    TableSchema{"Physical_Locator", Columns::ofPhysicalLocator},
    TableSchema{"Physical_Locator_Set", Columns::ofPhysicalLocatorSet},
    TableSchema{"Ucast_Macs_Remote", Columns::ofUcastMacsRemote},
    TableSchema{"Mcast_Macs_Remote", Columns::ofMcastMacsRemote},
};

constexpr const TableSchema& schemaOf(Table table) {
  return monitoredTables[static_cast<std::size_t>(table)];
}

}  // namespace Agent::Ovsdb
