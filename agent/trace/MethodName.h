// The short name of the method that a trace message comes from.
#pragma once

#include <string_view>

#include "framework/Ringlog/Site.h"

namespace Agent {

// "ZepPerVniFdbStatusSm::handleZepHostTable" of "void Vxlan::ZepPerVniFdbStatusSm::handle-
// ZepHostTable(Vorn::EthAddr)" in the facility Vxlan: without what it returns, its parameters, and
// the namespace of that name. Overloads are told apart by what they trace. The whole signature if
// it is of another form. Good for as long as the site.
std::string_view methodOf(const Ringlog::Site& site);

}  // namespace Agent
