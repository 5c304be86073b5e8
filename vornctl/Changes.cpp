#include "vornctl/Changes.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace ctl {

namespace {

using client::CARD_TYPE;

/// `pattern` is strftime's; "%L" in it stands for the milliseconds.
std::string TimeText(std::chrono::system_clock::time_point when, bool isForPrograms) {
  using std::chrono::milliseconds;
  const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
  const auto ms = std::chrono::duration_cast<milliseconds>(when.time_since_epoch()).count() % 1000;
  std::tm parts{};
  isForPrograms ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts);
  std::array<char, 32> day{};
  std::strftime(day.data(), day.size(), isForPrograms ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d %H:%M:%S",
                &parts);
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(ms));
  return std::string(day.data()) + fraction.data() + (isForPrograms ? "Z" : "");
}

}  // namespace

void CHANGES::Learn(const client::BLOCK_VALUE& value) {
  m_blocks[{value.address, value.block}] = value.value;
}

bool CHANGES::Knows(const client::BLOCK_VALUE& value) const {
  return m_blocks.contains({value.address, value.block});
}

/// Of a card that nobody has named, and of a block that it should not have, the block itself.
std::vector<PLACE> CHANGES::PlacesOf(int address, const CARD_TYPE& type) const {
  std::vector<PLACE> places;
  if (m_places.empty()) {
    places = ChannelsOf(address, type);
    for (PLACE& place : places) {
      place = WithName(place, m_link.Settings().names);
    }
    return places;
  }
  for (const PLACE& place : m_places) {
    if (place.address == address) {
      places.push_back(place);
    }
  }
  return places;
}

std::vector<CHANGE> CHANGES::Take(const client::BLOCK_VALUE& value) {
  const auto when = std::chrono::system_clock::now();
  const CARD_TYPE& type =
      client::TypeOf(m_link.KnownKindOf(value.address).value_or(client::CARD_KIND::kUnidentified));
  const auto known = m_blocks.find({value.address, value.block});
  const bool isKnown = known != m_blocks.end();
  const std::uint8_t before = isKnown ? known->second : std::uint8_t{0};
  Learn(value);
  std::vector<CHANGE> changes;
  if (type.inputBlocks == 0 && m_places.empty()) {
    const PLACE block{value.address, PLACE_KIND::kBlock, value.block, {}};
    changes.push_back({block, &type, Read(block, type, value.value).value_or(READING{}), when});
    return changes;
  }
  for (const PLACE& place : PlacesOf(value.address, type)) {
    if (BlockOf(place, type) != value.block) {
      continue;
    }
    const std::optional<READING> now = Read(place, type, value.value);
    if (now && (isKnown ? Read(place, type, before).value_or(READING{}).text != now->text
                        : now->text != "off")) {
      changes.push_back({place, &type, *now, when});
    }
  }
  return changes;
}

std::string TimeForPrograms(std::chrono::system_clock::time_point when) {
  return TimeText(when, true);
}

std::string ChangeText(const CHANGE& change) {
  return TimeText(change.when, false) + "  " + TitleOf(change.place) + ": " + change.reading.text;
}

RECORD ReadingRecord(const char* type, const PLACE& place, const CARD_TYPE& cardType,
                     const READING& reading) {
  RECORD record = {{"type", type}, {"place", TextOf(place)}};
  if (!place.name.empty()) {
    record["name"] = place.name;
  }
  const auto form = cardType.form;
  if (place.kind == PLACE_KIND::kChannel &&
      (form == client::VALUE_FORM::kPosition || form == client::VALUE_FORM::kSpeed)) {
    record["value"] = std::stod(reading.text);
    record["unit"] = "%";
  } else if (place.kind == PLACE_KIND::kKey || place.kind == PLACE_KIND::kEncoder) {
    record["value"] = reading.text == "none" ? RECORD(nullptr) : RECORD(std::stoi(reading.text));
  } else {
    record["value"] = reading.text;
  }
  record["raw"] = reading.block;
  return record;
}

RECORD ChangeRecord(const CHANGE& change, const std::string& line) {
  RECORD record = {{"type", "change"}, {"time", TimeText(change.when, true)}};
  record.update(ReadingRecord("change", change.place, *change.type, change.reading));
  record["line"] = line;
  return record;
}

}  // namespace ctl
