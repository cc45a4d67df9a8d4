// Comparison with what stands in golden/ beside this file. With GOLDEN_UPDATE in the environment it
// is written anew instead.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <istream>
#include <string>
#include <vector>

namespace AgentTest {

using Lines = std::vector<std::string>;

inline Lines linesOf(std::istream&& in) {
  Lines lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

inline Lines golden(const std::string& name) {
  return linesOf(std::ifstream(std::filesystem::path(GOLDEN) / name));
}

// Shows the first line that differs, at its place in the file.
inline void expectGolden(const std::string& name, const Lines& lines) {
  const std::string path = std::filesystem::path(GOLDEN) / name;
  if (std::getenv("GOLDEN_UPDATE") != nullptr) {
    std::ofstream file(path);
    for (const std::string& line : lines) file << line << '\n';
    return;
  }
  const Lines expected = golden(name);
  const auto [wanted, got] =
      std::mismatch(expected.begin(), expected.end(), lines.begin(), lines.end());
  if (wanted == expected.end() && got == lines.end()) return;
  ADD_FAILURE_AT(path.c_str(), static_cast<int>(wanted - expected.begin() + 1))
      << "  behind: " << (wanted == expected.begin() ? "" : *(wanted - 1))
      << "\nexpected: " << (wanted == expected.end() ? "the end" : *wanted)
      << "\n printed: " << (got == lines.end() ? "the end" : *got);
}

}  // namespace AgentTest
