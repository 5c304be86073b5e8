#include "sim/rack/Rack.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t kVersionLength = 4;
/// How often a waiter looks at cards that move by themselves.
constexpr std::chrono::milliseconds kMovingStep{2};

struct PLACE {
  int address;
  std::uint8_t typeCode;
};
constexpr PLACE kDefaultRack[] = {
    {0x0, type::kServo},         {0x1, type::kMotor},    {0x3, type::kDigitalInput},
    {0x5, type::kDigitalOutput}, {0x8, type::kKeys},     {0x9, type::kIr},
    {0xE, type::kLcd},           {0xF, type::kAnalogue},
};

bool IsSlot(int address) {
  return address >= 0 && address < kSlots;
}

}  // namespace

RACK::RACK(CLOCK clock) : m_clock(std::move(clock)) {
}

void RACK::PopulateDefault() {
  for (const PLACE& place : kDefaultRack)
    Insert(place.address, place.typeCode);
}

void RACK::Insert(int address, std::uint8_t typeCode) {
  if (!IsSlot(address))
    return;
  if (typeCode == type::kEmpty) {
    Remove(address);
    return;
  }
  const std::lock_guard lock(m_mutex);
  const std::string prefix = "card " + AddressText(address) + " ";
  auto card = MakeCard(typeCode, address,
                       [this, prefix](const std::string& line) { ReportLocked(prefix + line); });
  card->Advance(m_clock());
  ReportLocked(prefix + "plugged in: " + card->Keyword());
  m_cards[static_cast<std::size_t>(address)] = std::move(card);
  m_changed.notify_all();
}

void RACK::Remove(int address) {
  const std::lock_guard lock(m_mutex);
  if (!IsSlot(address) || m_cards[static_cast<std::size_t>(address)] == nullptr)
    return;
  m_cards[static_cast<std::size_t>(address)].reset();
  ReportLocked("card " + AddressText(address) + " pulled");
  m_changed.notify_all();
}

int RACK::TypeAt(int address) const {
  const std::lock_guard lock(m_mutex);
  if (!IsSlot(address) || m_cards[static_cast<std::size_t>(address)] == nullptr)
    return type::kEmpty;
  return m_cards[static_cast<std::size_t>(address)]->TypeCode();
}

void RACK::SetVersion(const std::string& version) {
  const std::lock_guard lock(m_mutex);
  m_version = version;
  m_version.resize(kVersionLength, ' ');
}

std::string RACK::Version() const {
  const std::lock_guard lock(m_mutex);
  return m_version;
}

std::optional<Bytes> RACK::Answer(const Bytes& request) {
  if (request.empty())
    return std::nullopt;
  const std::lock_guard lock(m_mutex);
  AdvanceLocked();
  switch (request[0]) {
    case request::kHandshake: {
      if (request.size() < kHandshakeBody.size() ||
          !std::equal(kHandshakeBody.begin(), kHandshakeBody.end(), request.begin()))
        return Bytes{error::kFormat};
      Bytes answer{reply::kVersion};
      answer.insert(answer.end(), m_version.begin(), m_version.end());
      return answer;
    }
    case request::kIdentify:
      return Identify();
    case request::kOutput:
    case request::kPoll:
    case request::kParameter: {
      if (request.size() < 2)
        return Bytes{error::kFormat};
      const std::uint8_t address = request[1];
      if (address >= kSlots || m_cards[address] == nullptr)
        return Bytes{error::kNoCard, address};
      Bytes answer = m_cards[address]->Answer(request);
      m_changed.notify_all();
      return answer;
    }
    default:
      return Bytes{error::kFormat};
  }
}

Bytes RACK::Identify() const {
  Bytes answer{reply::kIdentified};
  for (const auto& card : m_cards)
    answer.push_back(card != nullptr ? card->TypeCode() : type::kEmpty);
  return answer;
}

void RACK::Reset() {
  const std::lock_guard lock(m_mutex);
  AdvanceLocked();
  for (const auto& card : m_cards) {
    if (card != nullptr)
      card->Reboot();
  }
  m_changed.notify_all();
}

void RACK::SetListener(LISTENER listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = std::move(listener);
}

void RACK::ReportLocked(const std::string& line) {
  if (m_listener)
    m_listener(line);
}

bool RACK::Advance() {
  const std::lock_guard lock(m_mutex);
  const bool moving = AdvanceLocked();
  m_changed.notify_all();
  return moving;
}

bool RACK::AdvanceLocked() const {
  const TIME now = m_clock();
  bool moving = false;
  for (const auto& card : m_cards) {
    if (card == nullptr)
      continue;
    card->Advance(now);
    moving = moving || card->Moving();
  }
  return moving;
}

bool RACK::WithCard(int address, const std::function<void(CARD&)>& use) {
  const std::lock_guard lock(m_mutex);
  if (!IsSlot(address) || m_cards[static_cast<std::size_t>(address)] == nullptr)
    return false;
  AdvanceLocked();
  use(*m_cards[static_cast<std::size_t>(address)]);
  m_changed.notify_all();
  return true;
}

RESULT RACK::Operate(int address, const std::function<RESULT(CARD&)>& action) {
  if (!IsSlot(address))
    return RESULT::Error("an address is 0 to F");
  RESULT result;
  if (!WithCard(address, [&](CARD& card) { result = action(card); }))
    return RESULT::Error("no card at address " + AddressText(address));
  return result;
}

RESULT RACK::Press(int address, int key) {
  return Operate(address, [key](CARD& card) { return card.Press(key); });
}

RESULT RACK::Release(int address, int key) {
  return Operate(address, [key](CARD& card) { return card.Release(key); });
}

RESULT RACK::Turn(int address, int steps) {
  return Operate(address, [steps](CARD& card) { return card.Turn(steps); });
}

RESULT RACK::Set(int address, int channel, int value) {
  return Operate(address, [=](CARD& card) { return card.Set(channel, value); });
}

int RACK::Value(int address, int block) const {
  const std::lock_guard lock(m_mutex);
  if (!IsSlot(address) || m_cards[static_cast<std::size_t>(address)] == nullptr)
    return -1;
  AdvanceLocked();
  return m_cards[static_cast<std::size_t>(address)]->Value(block);
}

bool RACK::WaitForCard(int address, const std::function<bool(const CARD&)>& holds,
                       std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock lock(m_mutex);
  while (true) {
    const bool moving = AdvanceLocked();
    if (IsSlot(address) && m_cards[static_cast<std::size_t>(address)] != nullptr &&
        holds(*m_cards[static_cast<std::size_t>(address)]))
      return true;
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline)
      return false;
    m_changed.wait_until(lock, moving ? std::min(deadline, now + kMovingStep) : deadline);
  }
}

bool RACK::WaitForValue(int address, int block, int value, std::chrono::milliseconds limit) {
  return WaitForCard(
      address, [=](const CARD& card) { return card.Value(block) == value; }, limit);
}

bool RACK::WaitForText(int address, int column, int row, const std::string& text,
                       std::chrono::milliseconds limit) {
  return WaitFor<LCD_CARD>(
      address,
      [&](const LCD_CARD& card) {
        const std::vector<std::string> rows = card.Rows();
        if (row < 0 || row >= static_cast<int>(rows.size()) || column < 0 ||
            column >= card.Columns())
          return false;
        const std::string& shown = rows[static_cast<std::size_t>(row)];
        return shown.compare(static_cast<std::size_t>(column), text.size(), text) == 0;
      },
      limit);
}

}  // namespace sim
