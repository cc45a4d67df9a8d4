// Metrics as they are scraped, in one of two dialects: OpenMetrics 1.0, and the older text format
// 0.0.4.
//
//   Exposition out(Dialect::openMetrics);
//   out.gauge("vxlan_agent_hosts", "Hosts in the layer-2 RIB.", 12);
//   out.begin(Type::counter, "vxlan_agent_hosts_deleted", "Hosts deleted.");
//   out.sample(3, {{"cause", "deferred"}});
//   const std::string text = std::move(out).text();
//
// A family is written whole before the next one begins. Its name has no suffix of a sample: that of
// a counter goes without _total, that of an information without _info. One that ends in _seconds or
// _bytes has that unit. Names and help are ours: plain text in one line. Values of labels may come
// from anywhere: what no terminal may be given stands there as \xNN.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "agent/metrics/Histogram.h"

namespace Agent::Metrics {

enum class Dialect : std::uint8_t { text, openMetrics };

// The better one of those that an Accept header takes, the older one where it says nothing of
// either.
Dialect dialectFor(std::string_view accept);

// For the Content-Type header.
const char* contentTypeOf(Dialect dialect);

enum class Type : std::uint8_t { gauge, counter, histogram, info };

class Exposition {
 public:
  using Label = std::pair<std::string_view, std::string_view>;
  using Labels = std::initializer_list<Label>;

  explicit Exposition(Dialect dialect) : dialect_(dialect) {}

  void begin(Type type, std::string_view name, std::string_view help);
  // Of the family that was begun last; its labels differ from those of the family's others.
  void sample(double value, Labels labels = {});
  void sample(const Histogram& histogram, Labels labels = {});

  // Families of one sample.
  void gauge(std::string_view name, std::string_view help, double value);
  void counter(std::string_view name, std::string_view help, double value);
  void info(std::string_view name, std::string_view help, Labels labels);

  std::string text() &&;

 private:
  void comment(std::string_view what, std::string_view name, std::string_view text);
  void write(std::string_view suffix, Labels labels, std::string_view bound, double value);
  std::string_view suffix() const;

  const Dialect dialect_;
  Type type_{};
  std::string name_;  // of the family
  std::string text_;
};

}  // namespace Agent::Metrics
