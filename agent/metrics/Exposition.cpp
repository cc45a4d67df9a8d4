#include "agent/metrics/Exposition.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

#include "agent/base/Text.h"

namespace Agent::Metrics {

namespace {

std::string_view trimmed(std::string_view text) {
  constexpr const char* blanks = " \t";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return "";
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Cuts off what stands before the separator, and that.
std::string_view next(std::string_view& rest, char separator) {
  const std::size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view item = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return trimmed(item);
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  constexpr auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::ranges::equal(left, right, {}, lower, lower);
}

// How much a range of an Accept header is wanted, 0 to 1: its parameter q. None if it is of another
// version than the one that is written.
std::optional<double> weightOf(std::string_view parameters, std::string_view version) {
  double weight = 1;
  while (!parameters.empty()) {
    std::string_view value = next(parameters, ';');
    const std::string_view name = next(value, '=');
    if (equalsIgnoringCase(name, "q"))
      std::from_chars(value.data(), value.data() + value.size(), weight);
    if (equalsIgnoringCase(name, "version") && value != version) return std::nullopt;
  }
  return weight;
}

// Digits without an exponent, which readers of either dialect write the same way.
std::string numberText(double value) {
  std::array<char, 400> text{};  // more than any number has
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  return {text.data(), end.ptr};
}

void appendLabel(std::string& text, std::string_view name, std::string_view value) {
  text += text.back() == '{' ? "" : ",";
  text += name;
  text += "=\"";
  for (const char c : printable(value)) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  text += '"';
}

const char* nameOf(Type type, Dialect dialect) {
  switch (type) {
    case Type::gauge:
      return "gauge";
    case Type::counter:
      return "counter";
    case Type::histogram:
      return "histogram";
    case Type::info:
      return dialect == Dialect::openMetrics ? "info" : "gauge";
  }
  return "";
}

std::string_view unitOf(std::string_view name) {
  for (const std::string_view unit : {"seconds", "bytes"})
    if (name.ends_with(unit)) return unit;
  return "";
}

}  // namespace

Dialect dialectFor(std::string_view accept) {
  double openMetrics = 0;
  double plain = 0;
  while (!accept.empty()) {
    std::string_view range = next(accept, ',');
    const std::string_view type = next(range, ';');
    if (equalsIgnoringCase(type, "application/openmetrics-text"))
      openMetrics = std::max(openMetrics, weightOf(range, "1.0.0").value_or(0));
    if (equalsIgnoringCase(type, "text/plain"))
      plain = std::max(plain, weightOf(range, "0.0.4").value_or(0));
  }
  return openMetrics > 0 && openMetrics >= plain ? Dialect::openMetrics : Dialect::text;
}

const char* contentTypeOf(Dialect dialect) {
  return dialect == Dialect::openMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

std::string_view Exposition::suffix() const {
  switch (type_) {
    case Type::counter:
      return "_total";
    case Type::info:
      return "_info";
    case Type::gauge:
    case Type::histogram:
      break;
  }
  return "";
}

// The older dialect knows samples alone, and describes those.
void Exposition::begin(Type type, std::string_view name, std::string_view help) {
  type_ = type;
  name_ = name;
  std::string described = name_;
  if (dialect_ == Dialect::text) described += suffix();
  comment("TYPE", described, nameOf(type, dialect_));
  const std::string_view unit = unitOf(name);
  if (dialect_ == Dialect::openMetrics && !unit.empty()) comment("UNIT", described, unit);
  comment("HELP", described, help);
}

void Exposition::comment(std::string_view what, std::string_view name, std::string_view text) {
  text_ += "# ";
  for (const std::string_view word : {what, name}) {
    text_ += word;
    text_ += ' ';
  }
  text_ += text;
  text_ += '\n';
}

void Exposition::sample(double value, Labels labels) { write(suffix(), labels, "", value); }

void Exposition::sample(const Histogram& histogram, Labels labels) {
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < histogram.counts().size(); ++i) {
    count += histogram.counts()[i];
    const bool isLast = i == histogram.bounds().size();
    write("_bucket", labels, isLast ? std::string("+Inf") : numberText(histogram.bounds()[i]),
          static_cast<double>(count));
  }
  write("_sum", labels, "", histogram.sum());
  write("_count", labels, "", static_cast<double>(count));
}

// `bound` is the label of a bucket; empty: it is none.
void Exposition::write(std::string_view suffix, Labels labels, std::string_view bound,
                       double value) {
  text_ += name_;
  text_ += suffix;
  if (labels.size() != 0 || !bound.empty()) {
    text_ += '{';
    for (const auto& [label, text] : labels) appendLabel(text_, label, text);
    if (!bound.empty()) appendLabel(text_, "le", bound);
    text_ += '}';
  }
  text_ += ' ';
  text_ += numberText(value);
  text_ += '\n';
}

void Exposition::gauge(std::string_view name, std::string_view help, double value) {
  begin(Type::gauge, name, help);
  sample(value);
}

void Exposition::counter(std::string_view name, std::string_view help, double value) {
  begin(Type::counter, name, help);
  sample(value);
}

void Exposition::info(std::string_view name, std::string_view help, Labels labels) {
  begin(Type::info, name, help);
  sample(1, labels);
}

std::string Exposition::text() && {
  if (dialect_ == Dialect::openMetrics) text_ += "# EOF\n";
  return std::move(text_);
}

}  // namespace Agent::Metrics
