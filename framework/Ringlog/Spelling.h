// Tells the labels of a trace statement from its values by how its arguments are spelled.
//
// A literal and a buffer have the same type, const char[N], and so has `up ? "up  " : "down"`: only
// the text of the statement says which of them is the same at every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Ringlog {

// Of a list of arguments: how many, and which of them, counted from bit 0, are string literals and
// nothing else (literals side by side are one).
struct Spelling {
  static constexpr std::size_t most = 64;
  std::size_t arguments = 0;
  std::uint64_t labels = 0;
};

namespace Detail {

constexpr bool isOfWord(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Where the literal that begins at `begin` is over.
constexpr std::size_t endOfQuoted(std::string_view text, std::size_t begin) {
  std::size_t i = begin + 1;
  while (i < text.size() && text[i] != text[begin]) i += text[i] == '\\' ? 2 : 1;
  return i + 1;
}

}  // namespace Detail

// `text` is what the preprocessor makes of the arguments (#__VA_ARGS__). A comma between the <> of
// a template counts as one between arguments: the caller compares the number with the one that the
// compiler sees.
constexpr Spelling spellingOf(std::string_view text) {
  Spelling spelling;
  if (text.empty()) return spelling;
  int depth = 0;
  bool literal = true;
  for (std::size_t i = 0; i <= text.size();) {
    const char c = i < text.size() ? text[i] : ',';
    if (c == '"') {
      i = Detail::endOfQuoted(text, i);
      continue;
    }
    if (c == ',' && (depth == 0 || i == text.size())) {
      if (literal && spelling.arguments < Spelling::most)
        spelling.labels |= std::uint64_t{1} << spelling.arguments;
      ++spelling.arguments;
      literal = true;
    } else if (c != ' ') {
      literal = false;
      if (c == '(' || c == '[' || c == '{') ++depth;
      if (c == ')' || c == ']' || c == '}') --depth;
    }
    // A ' within a number or a name separates digits; else it begins a character.
    const bool character = c == '\'' && (i == 0 || !Detail::isOfWord(text[i - 1]));
    i = character ? Detail::endOfQuoted(text, i) : i + 1;
  }
  return spelling;
}

}  // namespace Ringlog
