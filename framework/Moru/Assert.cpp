#include "framework/Moru/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Moru {

void assertionFailed(const char* text, const std::string& values, const SourcePlace& place) {
  std::fprintf(stderr, "%s:%d: %s: assertion failed: %s%s%s\n", place.file, place.line,
               place.function, text, values.empty() ? "" : ": ", values.c_str());
  std::abort();
}

}  // namespace Moru
