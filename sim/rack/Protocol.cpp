#include "sim/rack/Protocol.h"

#include <cstring>

namespace sim {

const CARD_TYPE* FindCardType(int code) {
  for (const CARD_TYPE& row : kCardTypes) {
    if (row.code == code)
      return &row;
  }
  return nullptr;
}

const CARD_TYPE* FindCardType(const char* keyword) {
  for (const CARD_TYPE& row : kCardTypes) {
    if (std::strcmp(row.keyword, keyword) == 0)
      return &row;
  }
  return nullptr;
}

}  // namespace sim
