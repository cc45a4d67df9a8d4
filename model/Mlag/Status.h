// The state of the MLAG pair.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Mlag/MlagState.h"

namespace Mlag {

class Status final : public Moru::EntityOf<Status> {
 public:
  using State = Moru::Attribute<MlagState, 1>;
  State mlagState{this};
  State::Is mlagStateIs{mlagState};
};

}  // namespace Mlag
