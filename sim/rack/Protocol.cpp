#include "sim/rack/Protocol.h"

namespace sim {

const CARD_TYPE* FindCardType(int code) {
  for (const CARD_TYPE& row : kCardTypes) {
    if (row.code == code) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace sim
