#include "agent/trace/MethodName.h"

#include <cstddef>
#include <string>

namespace Agent {

namespace {

constexpr std::string_view anonymous = "(anonymous namespace)::";

// The place of the parameters' parenthesis, and of the last blank outside of <> before it.
struct Places {
  std::size_t parameters = std::string_view::npos;
  std::size_t blank = std::string_view::npos;
};

Places placesIn(std::string_view signature) {
  Places places;
  int depth = 0;
  for (std::size_t i = 0; i < signature.size(); ++i) {
    const char c = signature[i];
    if (signature.substr(i).starts_with(anonymous)) {
      i += anonymous.size() - 1;
    } else if (c == '<') {
      ++depth;
    } else if (c == '>') {
      --depth;
    } else if (depth == 0 && c == ' ') {
      places.blank = i;
    } else if (depth == 0 && c == '(') {
      places.parameters = i;
      break;
    }
  }
  return places;
}

}  // namespace

std::string_view methodOf(const Ringlog::Site& site) {
  const std::string_view signature = site.signature;
  const auto [parameters, blank] = placesIn(signature);
  if (parameters == std::string_view::npos) return signature;
  std::string_view name = signature.substr(0, parameters);
  if (blank != std::string_view::npos) name.remove_prefix(blank + 1);
  if (const std::string own = site.facility + "::"; name.starts_with(own))
    name.remove_prefix(own.size());
  if (name.starts_with(anonymous)) name.remove_prefix(anonymous.size());
  return name.empty() ? signature : name;
}

}  // namespace Agent
