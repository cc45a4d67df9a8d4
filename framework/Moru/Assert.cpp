#include "framework/Moru/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "framework/Moru/Trace.h"

namespace Moru {

namespace {

// Never destroyed: an assertion may fail in the destructor of a global.
std::function<std::string()>& contextProvider() {
  static auto& provider = *new std::function<std::string()>;
  return provider;
}

// Whatever the provider does, the assertion that has failed is what counts: one that fails in there
// finds no provider, and an exception ends here.
std::string contextText() {
  const auto provider = std::exchange(contextProvider(), nullptr);
  if (!provider) return {};
  try {
    return " (" + provider() + ")";
  } catch (...) {
    return {};
  }
}

}  // namespace

void assertionContextIs(std::function<std::string()> provider) {
  contextProvider() = std::move(provider);
}

void assertionFailed(const char* text, const std::string& values, const SourcePlace& place) {
  const std::string message = std::string(place.file) + ':' + std::to_string(place.line) + ": " +
                              place.function + ": assertion failed: " + text +
                              (values.empty() ? "" : ": ") + values;
  // Told before anything else is called. A host program may have made standard error a buffered
  // file; the ring lives in its file's pages, which the kernel keeps.
  std::fputs(message.c_str(), stderr);
  std::fflush(stderr);
  MORU_TRACE_RING(0, message);
  const std::string context = contextText();
  std::fprintf(stderr, "%s\n", context.c_str());
  std::fflush(stderr);
  if (!context.empty()) MORU_TRACE_RING(0, context);
  std::abort();
}

}  // namespace Moru
