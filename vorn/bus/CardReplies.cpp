// SERIAL_INTERFACE: what a reply does to the card table and to the clients.

#include "vorn/bus/SERIAL_INTERFACE.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string>

namespace {

/// Stores a changed value and flags it; true when it differed.
bool StoreIfChanged(PERIFCARD& card, std::size_t channel, std::uint8_t value) {
  if (card.values[channel] == value) {
    return false;
  }
  card.values[channel] = value;
  card.changeFlags[channel] = 1;
  return true;
}

}  // namespace

/// The kinds of replies and of input data, with the shortest that each can be: a shorter one is
/// ignored.
struct CARD_REPLY {
  struct KIND {
    std::uint8_t code;
    std::size_t shortest;
    bool addressed;  ///< byte 1 is a card address, below 16
    void (SERIAL_INTERFACE::*take)(const SERIAL_INTERFACE::REPLY&);
  };
  struct INPUT_KIND {
    CARD_CODE type;
    std::size_t shortest;
    bool (*take)(PERIFCARD&, const SERIAL_INTERFACE::REPLY&);
  };
  static constexpr KIND kKinds[] = {
      // code  shortest  addressed  taken by
      {bus::reply::kIdentification, 1 + bus::kAddresses, false,
       &SERIAL_INTERFACE::TakeIdentification},
      {bus::reply::kQueryData, 2, true, &SERIAL_INTERFACE::TakeQueryData},
      {bus::reply::kInputData, 2, true, &SERIAL_INTERFACE::TakeInputData},
  };
  static constexpr INPUT_KIND kInputKinds[] = {
      // card type  shortest  taken by
      {kDigitalInput, bus::kReplyDataAt + 2, &SERIAL_INTERFACE::TakeDigitalInput},
      {kKeyMatrix, bus::kReplyDataAt + 1, &SERIAL_INTERFACE::TakeKeyMatrix},
      {kAnalogueInput, bus::kReplyDataAt + kAnalogueChannels, &SERIAL_INTERFACE::TakeAnalogueInput},
  };
};

void SERIAL_INTERFACE::TakeReply(const REPLY& reply) {
  for (const CARD_REPLY::KIND& kind : CARD_REPLY::kKinds) {
    if (reply[0] == kind.code && reply.size() >= kind.shortest &&
        (!kind.addressed || reply[bus::kReplyAddressAt] < bus::kAddresses)) {
      (this->*kind.take)(reply);
    }
  }
}

// --- identification -----------------------------------------------------------------------------

void SERIAL_INTERFACE::TakeIdentification(const REPLY& reply) {
  for (std::size_t slot = 0; slot < bus::kAddresses; ++slot) {
    m_cards.With(slot, [&](PERIFCARD& card) {
      Identify(card, static_cast<std::uint8_t>(slot), reply[1 + slot]);
    });
  }
}

void SERIAL_INTERFACE::Identify(PERIFCARD& card, std::uint8_t address, std::uint8_t typeCode) {
  const CARD_TYPE& type = FindCardType(typeCode);
  card.address = address;
  card.typeCode = typeCode;
  card.SetName(type.name);
  card.stateWord = type.state;
  card.channelCount = type.channels;
  std::fill_n(card.values.begin(), type.presetValues, type.preset);
  if (type.pollCount != 0) {
    card.pollFlag = 1;
    const QList poll = bus::PollRequest(address, type.pollCount);
    // In a body that fits no frame the card would never be polled again.
    if (card.pollFrame.size() + poll.size() <= bus::kLongestRequest) {
      card.pollFrame.insert(card.pollFrame.end(), poll.begin(), poll.end());
    }
  }
}

// --- query data ---------------------------------------------------------------------------------

/// The change flags are left as they are, so that the lines of the card's last change go out again.
void SERIAL_INTERFACE::TakeQueryData(const REPLY& reply) {
  m_cards.With(reply[bus::kReplyAddressAt], [&](PERIFCARD& card) {
    card.queryBytes.fill(0);
    std::copy_n(reply.begin(), std::min(reply.size(), card.queryBytes.size()),
                card.queryBytes.begin());
  });
  WriteToQueue(reply.data());
}

// --- input data ---------------------------------------------------------------------------------

void SERIAL_INTERFACE::TakeInputData(const REPLY& reply) {
  const bool changed = m_cards.With(reply[bus::kReplyAddressAt], [&](PERIFCARD& card) {
    const auto* const kind =
        std::find_if(std::begin(CARD_REPLY::kInputKinds), std::end(CARD_REPLY::kInputKinds),
                     [&](const CARD_REPLY::INPUT_KIND& row) { return row.type == card.typeCode; });
    const bool known = kind != std::end(CARD_REPLY::kInputKinds);
    if (known && reply.size() < kind->shortest) {
      return false;
    }
    card.changeFlags.fill(0);
    return known && kind->take(card, reply);
  });
  if (changed) {
    WriteToQueue(reply.data());
  }
}

bool SERIAL_INTERFACE::TakeDigitalInput(PERIFCARD& card, const REPLY& reply) {
  const bool first = StoreIfChanged(card, 0, reply[bus::kReplyDataAt]);
  const bool second = StoreIfChanged(card, 1, reply[bus::kReplyDataAt + 1]);
  return first || second;
}

bool SERIAL_INTERFACE::TakeKeyMatrix(PERIFCARD& card, const REPLY& reply) {
  return StoreIfChanged(card, 0, reply[bus::kReplyDataAt]);
}

/// Sums the samples up to a report's worth; the reply after that only makes the report.
bool SERIAL_INTERFACE::TakeAnalogueInput(PERIFCARD& card, const REPLY& reply) {
  if (card.sampleCount < card.samplesPerReport || card.sampleCount <= 0) {
    for (std::size_t channel = 0; channel < kAnalogueChannels; ++channel) {
      card.analogueSums[channel] += reply[bus::kReplyDataAt + channel];
    }
    ++card.sampleCount;
    return false;
  }
  bool changed = false;
  for (std::size_t channel = 0; channel < kAnalogueChannels; ++channel) {
    const auto average = static_cast<std::uint8_t>(card.analogueSums[channel] / card.sampleCount);
    changed = StoreIfChanged(card, channel, average) || changed;
  }
  card.sampleCount = 0;
  card.analogueSums.fill(0);
  return changed;
}

// --- report -------------------------------------------------------------------------------------

void SERIAL_INTERFACE::WriteToQueue(const std::uint8_t* reply) {
  const std::uint8_t address = reply[bus::kReplyAddressAt];
  std::vector<std::string> lines;
  m_cards.With(address, [&](const PERIFCARD& card) {
    for (std::size_t channel = 0; channel < kCardValues; ++channel) {
      if (card.changeFlags[channel] != 0) {
        lines.push_back(FormatInputLine(address, channel, card.values[channel]));
      }
    }
  });
  for (const std::string& line : lines) {
    m_lineBacklog.Note(m_inboundQueue.Bytes());
    if (m_lineBacklog.HasJustFilled()) {
      m_logger.WriteLog(kErr, "too many messages wait from the card bus, input lines are lost");
    }
    if (!m_lineBacklog.IsFull()) {
      m_inboundQueue.ToQueue(Convert_CharBuff2QList(line.c_str()));
    }
  }
}
