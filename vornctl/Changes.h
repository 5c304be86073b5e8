#pragma once

#include "vornctl/Link.h"
#include "vornctl/Notation.h"
#include "vornctl/Output.h"

#include <chrono>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ctl {

/// A channel, or a block where nobody knows its card, has another value.
struct CHANGE {
  PLACE place;
  const client::CARD_TYPE* type;  ///< of a table; never null
  READING reading;
  std::chrono::system_clock::time_point when;
};

/// Makes changes of channels out of input lines, which tell a block at a time. Keeps the last state
/// of each block. Of the first line of a block it cannot know which of its bits have changed: those
/// that are on count as such, for inputs are off at rest. On the program's thread.
class CHANGES {
 public:
  /// Looks at those places only; at all where there are none.
  CHANGES(const LINK& link, std::vector<PLACE> places)
      : m_link(link), m_places(std::move(places)) {}

  /// A state that is no news.
  void Learn(const client::BLOCK_VALUE& value);
  bool Knows(const client::BLOCK_VALUE& value) const;
  std::vector<CHANGE> Take(const client::BLOCK_VALUE& value);

 private:
  std::vector<PLACE> PlacesOf(int address, const client::CARD_TYPE& type) const;

  const LINK& m_link;
  const std::vector<PLACE> m_places;
  std::map<std::pair<int, int>, std::uint8_t> m_blocks;
};

/// "2026-11-22 09:12:03.123  door: on"; the machine's local time.
std::string ChangeText(const CHANGE& change);
/// "2026-11-22T08:12:03.123Z"
std::string TimeForPrograms(std::chrono::system_clock::time_point when);
RECORD ChangeRecord(const CHANGE& change, const std::string& line);
/// What --json says of a reading: `type` is the record's.
RECORD ReadingRecord(const char* type, const PLACE& place, const client::CARD_TYPE& cardType,
                     const READING& reading);

}  // namespace ctl
