// Feeds the journal reader and the state store with whatever the fuzzer thinks of.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "agent/journal/Check.h"
#include "framework/Moru/Assert.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::istringstream again(text);
  Agent::Journal(again, "fuzz").findStart();

  std::istringstream in(text);
  Agent::Journal journal(in, "fuzz");
  std::uint64_t reports = 0;
  const auto result = Agent::check(journal, [&](const Agent::Complaint&) { ++reports; });
  Moru::assertThat(reports == result.malformed + result.refused, "each wrong line is reported");
  return 0;
}
