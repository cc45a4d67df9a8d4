// The trace. A statement is a line such as
//
//   MORU_TRACE(8, " init? ", initialized(), " vni: ", vni);
//
// with a level from 0 (most important) to 9; string literals are labels, and all else are values,
// also a text that a condition chooses, or that stands in an array. Its message is the signature of
// the function that it stands in, then labels and values one after the other; labels bring their
// own blanks. Nothing is evaluated unless somebody wants the message:
//
// - the trace stream: text, handed to the process's sink, of the facilities and levels that are on;
// - the trace ring: a binary record in the file that Ringlog::open() has opened, in nanoseconds.
//
// A statement belongs to the facility named `traceFacility` that is found from where it stands: a
// namespace defines one for its own, `inline constinit Moru::TraceFacility
// traceFacility{"Vxlan"};`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "framework/Moru/Ptr.h"
#include "framework/Ringlog/Ring.h"
#include "framework/Ringlog/Site.h"
#include "framework/Ringlog/Spelling.h"
#include "framework/Ringlog/Value.h"

namespace Moru {

class TraceFacility {
 public:
  using Levels = Ringlog::Levels;  // a bit for each level
  static constexpr Levels allLevels = Ringlog::allLevels;

  explicit constexpr TraceFacility(const char* name) : name_(name) {}
  TraceFacility(const TraceFacility&) = delete;
  TraceFacility& operator=(const TraceFacility&) = delete;

  const char* name() const { return name_; }

  // The levels of which messages go to the trace stream; none at first.
  Levels streamLevels() const { return streamLevels_; }
  void streamLevelsIs(Levels levels) { streamLevels_ = levels; }

  // The levels of which messages of all facilities go to the trace ring, while one is open; all at
  // first.
  static Levels ringLevels() { return Ringlog::levels(); }
  static void ringLevelsIs(Levels levels) { Ringlog::levelsIs(levels); }

 private:
  const char* name_;
  Levels streamLevels_ = 0;
};

inline constinit TraceFacility traceFacility{"Moru"};

// A message of the trace stream. The texts are good for as long as the call.
struct TraceMessage {
  unsigned level;
  std::string_view facility;
  std::string_view text;
};

// Who gets the trace stream; nobody at first. The sink may be called from within any mutator, and
// may set another one.
void traceSinkIs(std::function<void(const TraceMessage&)> sink);

// A pointer is recorded as the address.
template <class T>
const void* traceValue(const Ptr<T>& ptr) {
  return ptr.get();
}

// Renders a record for the sink.
void toTraceStream(const Ringlog::Site& site, std::span<const std::byte> record);

enum class TraceTo { streamAndRing, stream, ring };

// A statement: constant until it runs, at which time it enters itself into the ring.
template <TraceTo To>
class TraceSite {
 public:
  constexpr TraceSite(const TraceFacility& facility, unsigned level, const char* signature)
      : facility_(facility), level_(level), signature_(signature) {}

  bool isOn() const { return ((streamLevels() | ringLevels()) >> level_ & 1) != 0; }

  // The spelling is that of the arguments, and tells the labels among them.
  template <Ringlog::Spelling spelling, class... Args>
  void run(const Args&... args) {
    static_assert(
        spelling.arguments == sizeof...(Args),
        "parentheses are needed around an argument of a trace that has a comma between <>");
    static_assert(sizeof...(Args) <= Ringlog::Spelling::most);
    runAs<spelling.labels>(std::index_sequence_for<Args...>(), args...);
  }

 private:
  TraceFacility::Levels streamLevels() const {
    return To == TraceTo::ring ? 0 : facility_.streamLevels();
  }
  static TraceFacility::Levels ringLevels() {
    return To == TraceTo::stream ? 0 : Ringlog::levelsOn();
  }

  template <std::uint64_t labels, std::size_t... Is, class... Args>
  void runAs(std::index_sequence<Is...>, const Args&... args) {
    runRaw(Ringlog::rawOf<(labels >> Is & 1) != 0>(args)...);
  }

  template <class... Raws>
  void runRaw(const Raws&... raws) {
    const std::size_t size = (std::size_t{0} + ... + Ringlog::encodedSize(raws));
    const auto fill = [&]([[maybe_unused]] std::byte* to) {
      ((to = Ringlog::encode(to, raws)), ...);
    };
    if ((ringLevels() >> level_ & 1) != 0) toRing(size, fill, [&] { return describe(raws...); });
    if ((streamLevels() >> level_ & 1) != 0) {
      std::vector<std::byte> record(size);
      fill(record.data());
      toTraceStream(describe(raws...), record);
    }
  }

  template <class... Raws>
  Ringlog::Site describe(const Raws&... raws) const {
    Ringlog::Site site{level_, facility_.name(), Ringlog::normalSignature(signature_), {}};
    (site.items.push_back(item(raws)), ...);
    return site;
  }

  template <class Raw>
  static Ringlog::Site::Item item(const Raw& raw) {
    constexpr Ringlog::Kind kind = Ringlog::kindOf<Raw>();
    if constexpr (kind == Ringlog::Kind::label)
      return {kind, 0, std::string(raw.text)};
    else
      return {kind, kind == Ringlog::Kind::text ? std::uint8_t{0} : std::uint8_t{sizeof(Raw)}, {}};
  }

  template <class Fill, class Describe>
  void toRing(std::size_t size, const Fill& fill, const Describe& describe) {
    if (ringGeneration_ != Ringlog::generation()) [[unlikely]]
      enter(describe());
    if (ringGeneration_ != Ringlog::generation()) return;  // lost, in telling that it is full
    if (number_ != Ringlog::Format::filler)
      Ringlog::ring()->record(level_, number_, size, fill);
    else
      Ringlog::ring()->drop();
  }

  void enter(const Ringlog::Site& site) {
    ringGeneration_ = Ringlog::generation();
    number_ = Ringlog::ring()->addSite(site);
    if (number_ == Ringlog::Format::filler) Ringlog::reportError(Ringlog::ring()->error());
  }

  const TraceFacility& facility_;
  const unsigned level_;
  const char* const signature_;
  std::uint32_t ringGeneration_ = 0;
  std::uint16_t number_ = 0;
};

}  // namespace Moru

namespace Ringlog {
inline constinit Moru::TraceFacility traceFacility{"Ringlog"};
}  // namespace Ringlog

// Macros, because a statement needs a static object of its own, the signature of the function
// around it, the spelling of its arguments, and that these are not evaluated when nobody wants
// them.
#define MORU_TRACE_TO(to, level, ...)                                          \
  do {                                                                         \
    static constinit ::Moru::TraceSite<to> moruTraceSite{traceFacility, level, \
                                                         __PRETTY_FUNCTION__}; \
    if (moruTraceSite.isOn()) [[unlikely]]                                     \
      moruTraceSite.run<::Ringlog::spellingOf(#__VA_ARGS__)>(__VA_ARGS__);     \
  } while (false)

#define MORU_TRACE(level, ...) \
  MORU_TRACE_TO(::Moru::TraceTo::streamAndRing, level __VA_OPT__(, ) __VA_ARGS__)
#define MORU_TRACE_STREAM(level, ...) \
  MORU_TRACE_TO(::Moru::TraceTo::stream, level __VA_OPT__(, ) __VA_ARGS__)
#define MORU_TRACE_RING(level, ...) \
  MORU_TRACE_TO(::Moru::TraceTo::ring, level __VA_OPT__(, ) __VA_ARGS__)
