#include "agent/live/ControlClient.h"

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>
#include <vector>

#include "agent/base/InputError.h"
#include "agent/base/Text.h"
#include "agent/live/Question.h"
#include "agent/view/DumpReader.h"
#include "agent/view/FloodSetText.h"

namespace Agent {

namespace {

using Object = nlohmann::ordered_json;
using Protocol = asio::local::stream_protocol;

// The socket of the machine's only agent.
std::string onlySocket() {
  std::vector<std::string> sockets;
  std::error_code none;
  for (const auto& each : std::filesystem::directory_iterator(controlDirectory, none))
    if (each.path().extension() == ".sock") sockets.push_back(each.path());
  if (sockets.size() == 1) return sockets.front();
  std::string found;
  for (const std::string& each : sockets) appendTo(found, ", ", each);
  throw InputError(std::string(controlDirectory) + " has " +
                   (sockets.empty() ? "no control socket" : found) +
                   ": expected --control with the agent's own");
}

// A question put to an agent, and its answer line by line.
class Inquiry {
 public:
  Inquiry(const std::string& control, const Question& question)
      : path_(control.empty() ? onlySocket() : control) {
    const std::string line = lineOf(question);
    std::error_code error;
    socket_.connect(Protocol::endpoint(path_), error);
    if (error) throw std::system_error(error, "no agent answers at " + path_);
    asio::write(socket_, asio::buffer(line));
  }

  const std::string& path() const { return path_; }

  // The next line without its end; false if there is none. Throws InputError where the agent has
  // not understood.
  bool read(std::string& line) {
    std::error_code error;
    const std::size_t length =
        asio::read_until(socket_, asio::dynamic_buffer(pending_), '\n', error);
    if (error == asio::error::eof) return false;
    if (error) throw std::system_error(error, "cannot read the agent's answer");
    line = pending_.substr(0, length - 1);
    pending_.erase(0, length);
    if (!line.starts_with("{\"error\"")) return true;
    throw InputError(Object::parse(line).at("error").get<std::string>());
  }

 private:
  const std::string path_;
  asio::io_context io_;
  Protocol::socket socket_{io_};
  std::string pending_;
};

std::string textOf(const Object& value) {
  if (value.is_null()) return "-";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_array()) {
    std::string all;
    for (const Object& each : value) appendTo(all, " ", textOf(each));
    return all;
  }
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// "hosts.wanted" and what it is, a line each.
void addFields(TextTable& table, const std::string& name, const Object& value) {
  if (!value.is_object()) return table.add({name, textOf(value)});
  for (const auto& [key, member] : value.items()) {
    std::string path = name;
    appendTo(path, ".", key);
    addFields(table, path, member);
  }
}

// The answers as tables, by the question.
class Tables {
 public:
  explicit Tables(const std::string& what)
      : nothing_(what == "doctor" ? "nothing differs" : "none"),
        columns_(columnsOf(what)),
        table_(columns_.empty() ? std::vector<std::string>{"what", "now"} : columns_) {}

  void add(const Object& record) {
    if (columns_.empty())
      addFields(table_, "", record);
    else
      addRow(record);
    isEmpty_ = false;
  }

  void print(std::ostream& out) const {
    if (isEmpty_)
      out << nothing_ << '\n';
    else
      table_.print(out);
  }

 private:
  // The keys of its records; none where it is one object.
  static std::vector<std::string> columnsOf(const std::string& what) {
    if (what == "hosts") return {"mac", "vlan", "vni", "vtep", "marked", "waiting"};
    if (what == "floods") return {"vlan", "vni", "mac", "type", "vteps"};
    if (what == "problems") return {"since", "what", "value", "why"};
    if (what == "doctor") return {"vni", "mac", "database", "client", "kernel", "reason"};
    return {};
  }

  void addRow(const Object& record) {
    std::vector<std::string> cells;
    for (const std::string& key : columns_) {
      const Object& value = record.at(key);
      const bool isType = key == "type";
      cells.push_back(isType ? typeText(L2Rib::FloodSetType{value.get<std::uint32_t>()})
                             : textOf(value));
    }
    table_.add(std::move(cells));
  }

  const char* const nothing_;
  const std::vector<std::string> columns_;
  TextTable table_;
  bool isEmpty_ = true;
};

// A story and its verdict, as StoryView prints them.
class StoryText {
 public:
  StoryText(std::ostream& out, const Filter& filter) : out_(out) {
    for (const Vorn::EthAddr& mac : filter.macs) macs_ += mac.stringValue() + '\n';
  }

  void add(const Object& record) {
    out_ << std::exchange(macs_, "");
    if (record.contains("remark")) {
      out_ << "# " << printable(textOf(record["remark"])) << '\n';
      return;
    }
    const bool isVerdict = record.contains("verdict");
    const std::string time = timeOf(record);
    if (isVerdict && !std::exchange(hasVerdict_, true)) out_ << "now, at " << time << ":\n";
    out_ << "  " << (isVerdict ? "" : time + "  ") << printable(textOf(record.at("text"))) << '\n';
  }

 private:
  // "2026-11-21T05:10:11.123456789Z" as people read it: "2026-11-21 05:10:11.123456".
  static std::string timeOf(const Object& record) {
    constexpr std::size_t date = 10;
    constexpr std::size_t toMicroseconds = 26;
    std::string time = textOf(record.at("time")).substr(0, toMicroseconds);
    if (time.size() > date) time[date] = ' ';
    return printable(time);
  }

  std::ostream& out_;
  std::string macs_;
  bool hasVerdict_ = false;
};

}  // namespace

std::string askForReport(const std::string& control) {
  Inquiry inquiry(control, {.what = "report"});
  std::string line;
  if (!inquiry.read(line)) throw InputError("the agent has ended its answer: expected a line");
  return line;
}

ExitStatus ask(const AskOptions& options, std::ostream& out) {
  const std::string& what = options.what;
  const bool json = options.output.format == Format::json;
  if (what == "dump" && !json) {
    printTable(out, askForDump(options.control, options.output.filter), options.output.table);
    return ExitStatus::done;
  }
  Inquiry inquiry(options.control, {what, options.output.filter});
  const bool isStory = what == "explain";
  Tables tables(what);
  StoryText story(out, options.output.filter);
  ExitStatus status = ExitStatus::done;
  for (std::string line; inquiry.read(line);) {
    if (what == "dump") {
      out << line << '\n';
      continue;
    }
    const Object record = Object::parse(line);
    if (what == "doctor" && record.at("reason").is_null()) status = ExitStatus::failed;
    if (json)
      out << line << '\n';
    else if (isStory)
      story.add(record);
    else
      tables.add(record);
  }
  if (!json && !isStory) tables.print(out);
  return status;
}

Snapshot askForDump(const std::string& control, const Filter& filter) {
  Inquiry inquiry(control, {"dump", filter});
  std::string line;
  if (!inquiry.read(line)) throw InputError(inquiry.path() + " answers nothing: expected a dump");
  Snapshot snapshot = readDump(line);
  snapshot.origin.source = inquiry.path();
  return snapshot;
}

}  // namespace Agent
