// The language of paths: "controller/10010/host/02:00:00:00:00:01" names a ControllerHost. Changes
// come from a path and, when something is set, from the value that is given for it; and a change
// can be told by them.
#pragma once

#include <string>
#include <string_view>

#include "agent/journal/Values.h"
#include "agent/store/Change.h"

namespace Agent {

// Both throw InputError for a path that names nothing and for a value of another shape, and let
// pass the Moru::RangeException of a number that the data model refuses.
Change setOf(std::string_view path, Json value);
Change delOf(std::string_view path);

// The path and the value that these two would make the change from. writeValue() appends to `out`,
// and tells whether there is a value: not for a removal.
std::string pathOf(const Change& change);
bool writeValue(std::string& out, const Change& change);

}  // namespace Agent
