// Why a line cannot be read as a JSON object, and where, for people who look for the place.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// "not JSON at column 9 (unexpected '}'): expected one JSON object on the line", and the like.
// Columns count characters from 1. For a text that is no object, or that the JSON parser refuses.
std::string jsonFault(std::string_view text);

}  // namespace Agent
