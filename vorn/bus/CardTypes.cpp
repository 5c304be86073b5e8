#include "vorn/bus/CardTypes.h"

#include <algorithm>
#include <iterator>

namespace vorn {

const CARD_TYPE& FindCardType(std::uint8_t code) {
  const auto* const found = std::find_if(std::begin(kCardTypes), std::end(kCardTypes),
                                         [code](const CARD_TYPE& row) { return row.code == code; });
  return found == std::end(kCardTypes) ? kUnidentified : *found;
}

}  // namespace vorn
