#include "framework/Moru/Exception.h"

namespace Moru {

void refuseNull(std::string_view collection) {
  const std::string_view attribute = collection.substr(collection.rfind(':') + 1);
  std::string text = "null _";
  // The double quote at the end is part of the text.
  text.append(attribute).append(" parameter to mutator for ").append(collection);
  throw RangeException(text.append(" not allowed\""));
}

}  // namespace Moru
