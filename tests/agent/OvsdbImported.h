// An import that is played messages, as texts that are short enough to read, and what it has made a
// listener believe.
#pragma once

#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/ovsdb/Import.h"

namespace AgentTest {

using Agent::Announcements;
using Agent::Cause;
using Agent::FloodList;
using Agent::Ovsdb::Import;
using Agent::Ovsdb::Updates;
using Agent::Ovsdb::Uuid;
using Lines = std::vector<std::string>;

inline std::string uuidText(std::uint64_t number) { return Uuid{0xa << 4, number}.stringValue(); }

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

// "@7" becomes ["uuid", "..."], (a,b) a set, <a,b|c,d> a map, and ' becomes ". '.2' is 10.0.0.2,
// ':0a' is 02:00:00:00:00:0a.
inline std::string json(std::string text) {
  for (const auto& [from, to] :
       std::initializer_list<std::pair<const char*, const char*>>{{"'.", "'10.0.0."},
                                                                  {":':", ":'02:00:00:00:00:"},
                                                                  {"(", "['set',["},
                                                                  {")", "]]"},
                                                                  {"<", "['map',[["},
                                                                  {"|", "],["},
                                                                  {">", "]]]"},
                                                                  {"'", "\""}})
    text = replaced(text, from, to);
  for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
    std::size_t digits = 0;
    const auto number = std::stoull(text.substr(at + 1), &digits);
    text.replace(at, digits + 1, R"(["uuid",")" + uuidText(number) + R"("])");
  }
  return text;
}

inline Lines split(const std::string& text, const std::string& separator) {
  Lines parts;
  for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + separator.size()) {
    end = text.find(separator, at);
    if (end != at) parts.push_back(text.substr(at, end - at));
  }
  if (!parts.empty() && parts.back().empty()) parts.pop_back();
  return parts;
}

inline std::string joined(const Lines& parts) {
  std::string all;
  for (const std::string& part : parts) all += (all.empty() || part.empty() ? "" : "; ") + part;
  return all;
}

inline std::string shortened(const std::string& text) {
  return replaced(replaced(replaced(text, "02:00:00:00:00:", ":"), "10.0.0.", "."),
                  "ff:ff:ff:ff:ff:ff", "*");
}

// What a listener would believe, and what it has been told since it was last asked. Fails where
// something is said twice, or withdrawn that was not said.
class Believer final : public Announcements {
 public:
  void vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) override {
    is("vni " + text(vni), text(vlan));
  }
  void vniDel(const Vxlan::VniExt& vni, Cause cause) override {
    for (const auto& [what, value] : said)
      EXPECT_NE(what.find(' ' + text(vni) + ' '), 4U) << what << " outlives its VNI";
    del("vni " + text(vni), cause);
  }
  void hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
              const Vorn::IpAddr& vtep) override {
    EXPECT_TRUE(said.contains("vni " + text(vni)));
    is("host " + text(vni) + ' ' + text(mac), text(vtep));
  }
  void hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override {
    del("host " + text(vni) + ' ' + text(mac), cause);
  }
  void listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodList& list) override {
    EXPECT_TRUE(said.contains("vni " + text(vni)));
    std::string value = list.type == L2Rib::FloodSetType::sendToAll ? "all" : "any";
    for (const auto& vtep : list.vteps) value += ' ' + text(vtep);
    is("list " + text(vni) + ' ' + text(mac), value);
  }
  void listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override {
    del("list " + text(vni) + ' ' + text(mac), cause);
  }
  void commit() override { ++commits; }

  std::map<std::string, std::string> said;
  Lines told;
  int commits = 0;

 private:
  template <class Value>
  static std::string text(const Value& value) {
    std::ostringstream out;
    out << value;
    return shortened(out.str());
  }
  void is(const std::string& what, const std::string& value) {
    EXPECT_TRUE(!said.contains(what) || said[what] != value) << what << " is said again";
    said[what] = value;
    told.push_back(what + " = " + value);
  }
  void del(const std::string& what, Cause cause) {
    EXPECT_EQ(said.erase(what), 1U) << what << " was not said";
    told.push_back(what + (cause == Cause::meant ? " gone, meant" : " gone"));
  }
};

inline const std::map<std::string, std::string> tableNames{
    {"PS", "Physical_Switch"},  {"PP", "Physical_Port"},         {"LS", "Logical_Switch"},
    {"PL", "Physical_Locator"}, {"SET", "Physical_Locator_Set"}, {"U", "Ucast_Macs_Remote"},
    {"M", "Mcast_Macs_Remote"}};

// An import of the switch "us".
class Imported {
 public:
  enum Message { whole, differences, wholeRows, rows };

  // Each row is a table, a number, what happened, and the columns: "U 7 insert 'MAC': ...".
  // Returns what has been said.
  std::string play(Message form, const std::string& rows) {
    static const std::map<std::string, std::string> events{
        {"+", "insert"}, {"-", "delete"}, {"~", "modify"}};
    std::string tables;
    for (const std::string& line : split(rows, "; ")) {
      std::istringstream in(line);
      std::string table;
      std::string event;
      std::string columns;
      std::uint64_t number = 0;
      std::getline(in >> table >> number >> event, columns);
      if (const auto known = events.find(event); known != events.end()) event = known->second;
      tables += (tables.empty() ? "{'" : ",'") + tableNames.at(table) + "':{'" + uuidText(number) +
                "':{'" + event + "':{" + columns + "}}}";
    }
    return playText(form, tables.empty() ? "{}" : tables + '}');
  }

  std::string playText(Message form, const std::string& tables) {
    take(form, tables);
    while (import.stepPieces(1))
      if (looksAlways) expectShown();
    expectShown();
    EXPECT_EQ(saidBefore.value_or(believer.told.size()), believer.told.size()) << "told too early";
    saidBefore.reset();
    return said();
  }

  // What the import shows of what it has said is what has been told.
  void expectShown() const {
    Believer shown;
    for (const auto& [what, value] : believer.said)
      if (what.starts_with("vni")) shown.said.emplace(what, value);
    const Import& asked = import;
    asked.eachHost([&](const auto&... host) { shown.hostIs(host...); });
    asked.eachList([&](const auto&... list) { shown.listIs(list...); });
    EXPECT_EQ(shown.said, believer.said);
  }

  void take(Message form, const std::string& tables) {
    Updates updates;
    updates.form =
        form == wholeRows || form == rows ? Updates::Form::rows : Updates::Form::rowDifferences;
    updates.whole = form == whole || form == wholeRows;
    updates.document = std::make_unique<simdjson::dom::document>();
    simdjson::dom::parser parser;
    updates.tables = parser.parse_into_document(*updates.document, json(tables));
    import.take(std::move(updates));
  }

  std::string said() { return joined(std::exchange(believer.told, {})); }

  // "place = value" of all, with uuids as @number.
  std::string problemsNow() const {
    Lines all;
    for (const auto& [what, problem] : problems.all()) {
      all.push_back(shortened(what + " = " + problem.value));
      for (std::uint64_t number = 1; number < 100; ++number)
        all.back() = replaced(all.back(), uuidText(number), '@' + std::to_string(number));
    }
    return joined(all);
  }

  // "ADDRESS ...; PORT/TAG VNI; ...", as told last.
  std::string attachmentsNow() const {
    std::ostringstream all;
    for (const auto& address : attachments.ownAddresses) all << ' ' << address;
    for (const auto& [port, tag, vni] : attachments.ports)
      all << "; " << port << '/' << tag << ' ' << vni;
    return shortened(all.str());
  }

  Believer believer;
  Agent::Attachments attachments;
  std::optional<std::size_t> saidBefore;  // them, in a message
  bool looksAlways = false;               // at what is shown: in the midst of messages, too
  std::string events;                     // each with "; " behind it
  int problemsTold = 0;
  Agent::Problems problems{[this](const std::string&, const Agent::Problem&) { ++problemsTold; }};
  Import import{"us",
                believer,
                [this](const Agent::Change& change) {
                  const auto& vti = std::get<Agent::Set<Agent::Vti>>(change);
                  believer.told.push_back(vti.target.intf.stringValue() + ' ' +
                                          vti.value.localVtepAddr.value().stringValue());
                },
                [this](const Agent::Attachments& now) {
                  EXPECT_NE(now, attachments) << "told again";
                  attachments = now;
                  saidBefore = believer.told.size();
                },
                problems,
                {[this] { events += "caught up; "; },
                 [this](const std::string& row) { events += "unknown " + row + "; "; },
                 [this] { events += "switch missing; "; }}};
};

}  // namespace AgentTest
