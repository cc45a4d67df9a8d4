#include "framework/Moru/Assert.h"

#include <cstdio>
#include <cstdlib>

#include "framework/Moru/Trace.h"

namespace Moru {

void assertionFailed(const char* text, const std::string& values, const SourcePlace& place) {
  const std::string message = std::string(place.file) + ':' + std::to_string(place.line) + ": " +
                              place.function + ": assertion failed: " + text +
                              (values.empty() ? "" : ": ") + values;
  std::fprintf(stderr, "%s\n", message.c_str());
  // The ring lives in the file's pages, which the kernel keeps: this completes it.
  MORU_TRACE_RING(0, message);
  std::abort();
}

}  // namespace Moru
