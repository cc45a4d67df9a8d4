// A database that changes at random, and what the import makes of its messages.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <utility>

#include "tests/agent/OvsdbImported.h"

namespace AgentTest {
namespace {

// A database of the test's own, which changes at random and knows what it would send.
class Database {
 public:
  explicit Database(unsigned seed) : random_(seed) {
    rows_["PS 1"] = {{"name", {{"", "'us'"}}}, {"tunnel_ips", {{"'10.0.0.1'", ""}}}};
  }

  void change() {
    before_ = rows_;
    for (int count = below(6); count >= 0; --count) changeRow();
    attach();
  }

  // As Imported has them.
  std::string attachments() const { return attachments_; }

  std::string differences() const {
    Lines lines;
    for (const auto& [name, row] : before_)
      if (!rows_.contains(name)) lines.push_back(name + " delete");
    for (const auto& [name, row] : rows_) {
      const auto old = before_.find(name);
      if (old == before_.end())
        lines.push_back(name + " insert " + text(row));
      else if (old->second != row)
        lines.push_back(name + " modify " + text(difference(old->second, row)));
    }
    return joined(lines);
  }

  std::string all(const std::string& event) const {
    Lines lines;
    for (const auto& [name, row] : rows_) lines.push_back(name + ' ' + event + ' ' + text(row));
    return joined(lines);
  }

  int below(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }

 private:
  // One value under "", the members of a set as keys, or a map.
  using Column = std::map<std::string, std::string>;
  using Row = std::map<std::string, Column>;

  static bool isMap(const std::string& name) { return name == "vlan_bindings"; }
  static bool isSet(const std::string& name) {
    return name == "ports" || name == "locators" || name == "tunnel_ips";
  }

  static std::string text(const Row& row) {
    std::string all;
    for (const auto& [name, column] : row) {
      std::string members;
      for (const auto& [key, value] : column) {
        if (!members.empty()) members += ',';
        members += isMap(name) ? '[' + key + ',' + value + ']' : key + value;
      }
      if (isMap(name)) members = "['map',[" + members + "]]";
      if (isSet(name) && column.size() != 1) members = "['set',[" + members + "]]";
      all += (all.empty() ? "'" : ",'") + name + "':" + members;
    }
    return all;
  }

  static Row difference(const Row& old, const Row& now) {
    Row different;
    for (const auto& [name, column] : now) {
      Column was = old.contains(name) ? old.at(name) : Column();
      if (was == column) continue;
      Column& told = different[name] = column;
      if (!isMap(name) && !isSet(name)) continue;
      for (const auto& [key, value] : was) {
        if (!column.contains(key) || column.at(key) != value)
          told.try_emplace(key, value);
        else
          told.erase(key);
      }
    }
    return different;
  }

  // Of the bound switches, the VNI that each has, or had last.
  void attach() {
    std::map<std::string, std::string> vnis;
    std::map<std::string, std::string> ports;
    std::string taken;
    for (const std::string number : {"2", "3"}) {
      if (!rows_.contains("PP " + number) || !rows_["PS 1"]["ports"].contains('@' + number))
        continue;
      Row& port = rows_["PP " + number];
      const std::string name = port["name"][""];
      const bool isNamed = name != "'a/b'" && name != taken;
      if (isNamed) taken = name;
      for (const auto& [tag, logicalSwitch] : port["vlan_bindings"]) {
        const auto row = rows_.find("LS " + logicalSwitch.substr(1));
        const std::string key = row == rows_.end() ? "" : row->second["tunnel_key"][""];
        const std::string vni = key.size() == 4 ? key : vnis_[logicalSwitch];
        vnis[logicalSwitch] = vni;
        if (isNamed && !vni.empty()) ports["; " + name.substr(1, 2) + '/' + tag + ' '] = vni;
      }
    }
    vnis_ = vnis;
    attachments_.clear();
    for (const auto& [address, value] : rows_["PS 1"]["tunnel_ips"])
      attachments_ += " ." + address.substr(8, address.size() - 9);
    for (const auto& [port, vni] : ports) attachments_ += port + vni;
  }

  std::string one(int first, int count) { return '@' + std::to_string(first + below(count)); }
  Column some(int first, int count) {
    Column members;
    for (int i = 0; i < count; ++i)
      if (below(2) == 0) members['@' + std::to_string(first + i)] = "";
    return members;
  }
  std::string mac(int first) {
    return "'02:00:00:00:00:0" + std::to_string(first + below(3)) + "'";
  }

  void changeRow() {
    const int number = below(20);
    const auto row = [&](const std::string& table, int first, int count) -> Row* {
      const std::string name = table + ' ' + std::to_string(first + below(count));
      if (below(4) != 0) return &rows_[name];
      rows_.erase(name);
      return nullptr;
    };
    if (number == 0) {
      rows_["PS 1"]["ports"] = below(3) == 0 ? some(2, 2) : Column{{"@2", ""}, {"@3", ""}};
      auto& addresses = rows_["PS 1"]["tunnel_ips"] = {{"'10.0.0.1'", ""}};
      if (below(2) == 0) addresses["'10.0.0." + std::to_string(2 + below(9)) + "'"] = "";
    } else if (number == 1) {
      if (Row* port = row("PP", 2, 2)) {
        (*port)["name"][""] = Lines{"'p2'", "'p3'", "'a/b'"}[static_cast<std::size_t>(below(3))];
        (*port)["vlan_bindings"] = {{std::to_string(below(3)), one(11, 3)},
                                    {std::to_string(below(3) + 3), one(11, 3)}};
      }
    } else if (number == 2) {
      const int name = below(3);
      if (Row* logicalSwitch = row("LS", 11 + name, 1)) {
        const Lines keys{"0", "-7", "['set',[]]", std::to_string(5000 + name),
                         std::to_string(6000 + name)};
        (*logicalSwitch)["tunnel_key"][""] = keys[static_cast<std::size_t>(std::min(below(12), 4))];
        (*logicalSwitch)["replication_mode"][""] = below(2) == 0 ? "'source_node'" : "['set',[]]";
      }
    } else if (number == 3) {
      if (Row* locator = row("PL", 21, 4))
        *locator = {
            {"dst_ip",
             {{"", below(6) == 0 ? "'banana'" : "'10.0.0." + std::to_string(1 + below(4)) + "'"}}},
            {"encapsulation_type", {{"", "'vxlan_over_ipv4'"}}}};
    } else if (number == 4) {
      if (Row* set = row("SET", 41, 3)) (*set)["locators"] = some(21, 4);
    } else if (number < 8) {
      if (Row* list = row("M", 51, 9))
        *list = {{"MAC", {{"", below(2) == 0 ? "'unknown-dst'" : mac(1)}}},
                 {"logical_switch", {{"", one(11, 3)}}},
                 {"locator_set", {{"", one(41, 3)}}}};
    } else if (Row* host = row("U", 31, 9)) {
      *host = {{"MAC", {{"", below(9) == 0 ? "'x'" : mac(1)}}},
               {"logical_switch", {{"", one(11, 3)}}},
               {"locator", {{"", one(21, 4)}}}};
    }
  }

  std::mt19937 random_;
  std::map<std::string, Row> rows_;
  std::map<std::string, Row> before_;
  std::map<std::string, std::string> vnis_;  // by logical switch
  std::string attachments_;
};

// After each message, all that has been said so far is what the whole state says to one who has
// heard nothing before.
TEST(OvsdbRowsAtRandom, DifferencesEndWhereTheWholeStateDoes) {
  // Numbers that were given for want of a tag depend on what was before.
  const auto withoutGivenVlans = [](std::map<std::string, std::string> said) {
    for (auto& [what, value] : said)
      if (what.starts_with("vni ") && value.size() == 4) value = "given";
    return said;
  };
  std::size_t facts = 0;
  for (unsigned seed = 1; seed <= 8; ++seed) {
    Database database(seed);
    Imported followed;
    Imported another;
    followed.play(Imported::whole, database.all("initial"));
    another.play(Imported::wholeRows, database.all("new"));
    for (int message = 0; message < 150; ++message) {
      database.change();
      const std::string told = database.below(8) == 0
                                   ? followed.play(Imported::whole, database.all("initial"))
                                   : followed.play(Imported::differences, database.differences());
      // Causes apart: a whole state may lack what has been lost.
      EXPECT_EQ(replaced(another.play(Imported::wholeRows, database.all("new")), ", meant", ""),
                replaced(told, ", meant", ""));
      Imported fresh;
      fresh.play(Imported::wholeRows, database.all("new"));
      ASSERT_EQ(withoutGivenVlans(followed.believer.said), withoutGivenVlans(fresh.believer.said))
          << "seed " << seed << ", message " << message;
      ASSERT_EQ(followed.problemsNow(), fresh.problemsNow());
      ASSERT_EQ(followed.attachmentsNow(), database.attachments());
      ASSERT_EQ(another.attachmentsNow(), database.attachments());
      ASSERT_EQ(followed.events, "");
      facts += followed.believer.said.size();
    }
  }
  EXPECT_GT(facts, 2000U);
}

}  // namespace
}  // namespace AgentTest
