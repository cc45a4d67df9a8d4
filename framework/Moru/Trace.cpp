#include "framework/Moru/Trace.h"

#include <memory>
#include <string>

namespace Ringlog {

namespace {

void traceError(const std::string& text) { MORU_TRACE(0, text); }

[[maybe_unused]] const bool told = (errorSinkIs(traceError), true);

}  // namespace

}  // namespace Ringlog

namespace Moru {

namespace {

using TraceSink = std::function<void(const TraceMessage&)>;

// Never destroyed: destructors of globals may trace. Shared: a sink that sets another one stays
// until it returns.
std::shared_ptr<const TraceSink>& traceSink() {
  static auto& sink = *new std::shared_ptr<const TraceSink>;
  return sink;
}

}  // namespace

void traceSinkIs(TraceSink sink) {
  traceSink() = sink ? std::make_shared<const TraceSink>(std::move(sink)) : nullptr;
}

void toTraceStream(const Ringlog::Site& site, std::span<const std::byte> record) {
  const auto sink = traceSink();
  if (!sink) return;
  const auto text = Ringlog::render(site, record);
  (*sink)({site.level, site.facility, text.value_or(site.signature)});
}

}  // namespace Moru
