// The check of an invariant that stops the process when it is broken, in release builds too.
#pragma once

#include <functional>
#include <string>

namespace Moru {

// What the process is working on, as its host program words it ("journal.jsonl:17"): a failed
// assertion asks for it, and says it. Without a provider, as at first, it says nothing of the kind.
void assertionContextIs(std::function<std::string()> provider);

// Where a check stands: taken by a defaulted argument, so that no caller spells it out.
struct SourcePlace {
  const char* function;
  const char* file;
  int line;

  static constexpr SourcePlace here(const char* function = __builtin_FUNCTION(),
                                    const char* file = __builtin_FILE(),
                                    int line = __builtin_LINE()) {
    return {function, file, line};
  }
};

// Writes the text, the values, the function, the place and the context to standard error and as the
// last records into the trace ring, then aborts.
[[noreturn]] void assertionFailed(const char* text, const std::string& values,
                                  const SourcePlace& place);

// Stops the process unless `condition` holds. `text` is the invariant as its owner words it.
inline void assertThat(bool condition, const char* text,
                       const SourcePlace& place = SourcePlace::here()) {
  if (!condition) [[unlikely]]
    assertionFailed(text, {}, place);
}

// The same, and says the values: `values` is called only when the invariant is broken, and returns
// what belongs behind the text.
template <class Values>
void assertThat(bool condition, const char* text, Values&& values,
                const SourcePlace& place = SourcePlace::here()) requires requires {
  std::string(values());
}
{
  if (!condition) [[unlikely]]
    assertionFailed(text, values(), place);
}

}  // namespace Moru
