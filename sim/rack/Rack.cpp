#include "sim/rack/Rack.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t kVersionLength = 4;

bool IsSlot(int address) {
  return address >= 0 && address < kSlots;
}

}  // namespace

RACK::RACK(CLOCK clock) : m_clock(std::move(clock)) {
}

/// Null for an empty slot and for none.
CARD* RACK::At(int address) const {
  return IsSlot(address) ? m_cards.at(static_cast<std::size_t>(address)).get() : nullptr;
}

void RACK::Insert(int address, std::uint8_t typeCode) {
  if (!IsSlot(address)) {
    return;
  }
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
}

void RACK::Remove(int address) {
  const std::lock_guard lock(m_mutex);
  if (At(address) == nullptr) {
    return;
  }
  m_cards[static_cast<std::size_t>(address)].reset();
  ReportLocked("card " + AddressText(address) + " pulled");
}

int RACK::TypeAt(int address) const {
  const std::lock_guard lock(m_mutex);
  const CARD* card = At(address);
  return card != nullptr ? card->TypeCode() : type::kEmpty;
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
  if (request.empty()) {
    return std::nullopt;
  }
  const std::lock_guard lock(m_mutex);
  AdvanceLocked();
  switch (request[0]) {
    case request::kHandshake: {
      if (request.size() < kHandshakeBody.size() ||
          !std::equal(kHandshakeBody.begin(), kHandshakeBody.end(), request.begin())) {
        return Bytes{error::kFormat};
      }
      Bytes answer{reply::kVersion};
      answer.insert(answer.end(), m_version.begin(), m_version.end());
      return answer;
    }
    case request::kIdentify:
      return Identify();
    case request::kOutput:
    case request::kPoll:
    case request::kParameter: {
      if (request.size() < 2) {
        return Bytes{error::kFormat};
      }
      const std::uint8_t address = request[1];
      if (address >= kSlots || m_cards[address] == nullptr) {
        return Bytes{error::kNoCard, address};
      }
      Bytes answer = m_cards[address]->Answer(request);
      return answer;
    }
    default:
      return Bytes{error::kFormat};
  }
}

Bytes RACK::Identify() const {
  Bytes answer{reply::kIdentified};
  for (const auto& card : m_cards) {
    answer.push_back(card != nullptr ? card->TypeCode() : type::kEmpty);
  }
  return answer;
}

void RACK::Reset() {
  const std::lock_guard lock(m_mutex);
  AdvanceLocked();
  for (const auto& card : m_cards) {
    if (card != nullptr) {
      card->Reboot();
    }
  }
}

void RACK::SetListener(LISTENER listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = std::move(listener);
}

void RACK::ReportLocked(const std::string& line) {
  if (m_listener) {
    m_listener(line);
  }
}

bool RACK::Advance() {
  const std::lock_guard lock(m_mutex);
  return AdvanceLocked();
}

bool RACK::AdvanceLocked() const {
  const TIME now = m_clock();
  bool moving = false;
  for (const auto& card : m_cards) {
    if (card == nullptr) {
      continue;
    }
    card->Advance(now);
    moving = moving || card->Moving();
  }
  return moving;
}

bool RACK::WithCard(int address, const std::function<void(CARD&)>& use) {
  const std::lock_guard lock(m_mutex);
  CARD* card = At(address);
  if (card == nullptr) {
    return false;
  }
  AdvanceLocked();
  use(*card);
  return true;
}

}  // namespace sim
