#include "framework/Moru/Trace.h"

#include <string>

namespace Moru {

namespace {

std::function<void(const TraceMessage&)>& traceSink() {
  static std::function<void(const TraceMessage&)> sink;
  return sink;
}

}  // namespace

void traceSinkIs(std::function<void(const TraceMessage&)> sink) { traceSink() = std::move(sink); }

void toTraceStream(const Ringlog::Site& site, std::span<const std::byte> record) {
  if (!traceSink()) return;
  const auto text = Ringlog::render(site, record);
  traceSink()({site.level, site.facility, text.value_or(site.signature)});
}

}  // namespace Moru
