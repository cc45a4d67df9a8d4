// JSON as the agent writes it, for programs to read.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace Agent {

// On one line and in ASCII, so that no text from outside controls a terminal; text that is not
// UTF-8 has its wrong bytes replaced by U+FFFD.
std::string jsonText(const nlohmann::ordered_json& json);

}  // namespace Agent
