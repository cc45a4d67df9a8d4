#include "agent/base/JsonText.h"

#include <nlohmann/json.hpp>

namespace Agent {

std::string jsonText(const nlohmann::ordered_json& json) {
  constexpr bool asciiAlone = true;
  return json.dump(-1, ' ', asciiAlone, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Agent
