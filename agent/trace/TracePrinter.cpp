#include "agent/trace/TracePrinter.h"

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "agent/base/JsonText.h"
#include "agent/base/Text.h"
#include "agent/trace/MethodName.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;
using Ringlog::Contents;

struct WriterText {
  const char* text;
  const char* json;
};

WriterText writerText(Ringlog::Writer writer) {
  switch (writer) {
    case Ringlog::Writer::running:
      return {", running", "running"};
    case Ringlog::Writer::closed:
      return {", ended well", "ended"};
    case Ringlog::Writer::left:
      return {", went on in another file, as this one had been taken away", "left"};
    case Ringlog::Writer::gone:
      return {", ended without closing: crashed, or killed", "crashed"};
    case Ringlog::Writer::open:
      return {", not closed: running, crashed or killed", "open"};
    case Ringlog::Writer::untold:
      break;
  }
  return {"", "unknown"};
}

using Counts = std::array<std::size_t, Ringlog::mostLevels>;

Counts countsOf(const Contents& contents) {
  Counts counts{};
  for (const Ringlog::Message& message : contents.messages) ++counts.at(message.level);
  return counts;
}

std::string overwrittenText(const Contents& contents) {
  const auto since = contents.wholeSince();
  if (!since) return {};
  const auto count = contents.overwritten();
  const std::string text = "; " + (count ? std::to_string(*count) + ' ' : "");
  return *since > contents.messages.front().time
             ? text + "others were overwritten, all before " + utcText(*since)
             : text + "older ones were overwritten";
}

// What there is of messages, and what there was.
std::string coverageText(const Contents& contents) {
  if (contents.messages.empty()) return "no messages";
  const Counts counts = countsOf(contents);
  std::string levels;
  std::size_t levelsWithAny = 0;
  for (std::size_t level = 0; level < counts.size(); ++level) {
    if (counts[level] == 0) continue;
    ++levelsWithAny;
    appendTo(levels, ", ", "level " + std::to_string(level) + ": " + std::to_string(counts[level]));
  }
  const std::size_t messages = contents.messages.size();
  return std::to_string(messages) + (messages == 1 ? " message" : " messages") +
         (levelsWithAny > 1 ? " (" + levels + ")" : "") + " from " +
         utcText(contents.messages.front().time) + " to " + utcText(contents.messages.back().time) +
         overwrittenText(contents);
}

Json timeOrNull(std::optional<std::int64_t> time) {
  return time ? Json(rfc3339Text(*time)) : Json();
}

Json headJson(const std::string& path, const Contents& contents) {
  Json levels = Json::object();
  const Counts counts = countsOf(contents);
  for (std::size_t level = 0; level < counts.size(); ++level)
    if (counts[level] != 0) levels[std::to_string(level)] = counts[level];
  const bool isEmpty = contents.messages.empty();
  const auto overwritten = contents.overwritten();
  Json head = {{"file", path},
               {"process", contents.process},
               {"state", writerText(contents.writer).json},
               {"messages", contents.messages.size()},
               {"levels", levels},
               {"overwritten", overwritten ? Json(*overwritten) : Json()}};
  head["from"] = isEmpty ? Json() : Json(rfc3339Text(contents.messages.front().time));
  head["to"] = isEmpty ? Json() : Json(rfc3339Text(contents.messages.back().time));
  head["wholeFrom"] = timeOrNull(contents.wholeSince());
  return head;
}

std::string ringText(std::size_t ring) { return '[' + std::to_string(ring + 1) + "] "; }

}  // namespace

void TracePrinter::printHead(const std::string& path, std::size_t ring, const Contents& contents) {
  if (options_.json) {
    out_ << jsonText(headJson(path, contents)) << '\n';
    return;
  }
  const std::string start = "# " + (options_.tellsRing ? ringText(ring) : "");
  out_ << start << printable(path) << ": process " << contents.process
       << writerText(contents.writer).text << '\n'
       << start << coverageText(contents) << '\n';
}

void TracePrinter::print(const ContextWindow::Shown& shown, const std::string& path) {
  const Ringlog::Message& message = shown.message;
  const std::string_view method = methodOf(*message.site);
  if (!options_.json) {
    if (shown.beginsGroup && options_.tellsMatches) out_ << "--\n";
    const std::string_view text = message.text;
    out_ << utcText(message.time) << ' ' << (options_.tellsRing ? ringText(shown.ring) : "")
         << message.level << ' ' << printable(message.facility) << ' ';
    if (options_.full)
      out_ << printable(text) << '\n';
    else
      out_ << printable(method) << printable(text.substr(message.site->signature.size())) << '\n';
    return;
  }
  Json object = {{"time", rfc3339Text(message.time)},
                 {"ns", std::to_string(message.time)},
                 {"level", message.level},
                 {"facility", message.facility},
                 {"method", method}};
  if (options_.full) object["signature"] = message.site->signature;
  object["text"] = message.text;
  if (options_.tellsRing) object["file"] = path;
  if (options_.tellsMatches) object["match"] = shown.isMatch;
  out_ << jsonText(object) << '\n';
}

template <class Value>
void TracePrinter::note(const char* name, const Value& value, const std::string& text) {
  if (options_.json)
    out_ << jsonText({{name, value}, {"reason", text}}) << '\n';
  else
    out_ << "# " << text << '\n';
}

void TracePrinter::printLost(std::uint64_t messages) {
  note("lostMessages", messages,
       std::to_string(messages) + " messages were lost: overwritten before they could be read");
}

void TracePrinter::printDropped(std::uint64_t messages) {
  note("droppedMessages", messages,
       std::to_string(messages) +
           " messages were dropped: the file had no room for their statements");
}

void TracePrinter::printFormerGone() {
  note("formerFile", "gone", "the file before is gone: what was written to it since is not shown");
}

void TracePrinter::printNothing(std::optional<std::int64_t> wholeSince, bool isOneRing) {
  std::string text = "nothing matches, and nothing was overwritten that might have";
  if (wholeSince)
    text = std::string("nothing matches, but older messages were overwritten: the ") +
           (isOneRing ? "ring is" : "rings are") + " whole since " + utcText(*wholeSince);
  if (options_.json)
    out_ << jsonText({{"matches", 0}, {"wholeFrom", timeOrNull(wholeSince)}, {"reason", text}})
         << '\n';
  else
    out_ << "# " << text << '\n';
}

}  // namespace Agent
