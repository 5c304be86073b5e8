#include "vorn/bus/CardReplies.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace {

// --- input data, by type of card ----------------------------------------------------------------

/// Stores a changed value and flags it; true when it differed.
bool StoreIfChanged(PERIFCARD& card, std::size_t channel, std::uint8_t value) {
  if (card.values[channel] == value) {
    return false;
  }
  card.values[channel] = value;
  card.changeFlags[channel] = 1;
  return true;
}

bool TakeDigitalInput(PERIFCARD& card, const CARD_REPLY& reply) {
  const bool first = StoreIfChanged(card, 0, reply[bus::kReplyDataAt]);
  const bool second = StoreIfChanged(card, 1, reply[bus::kReplyDataAt + 1]);
  return first || second;
}

bool TakeKeyMatrix(PERIFCARD& card, const CARD_REPLY& reply) {
  return StoreIfChanged(card, 0, reply[bus::kReplyDataAt]);
}

/// Sums the samples up to a report's worth; the reply after that only makes the report.
bool TakeAnalogueInput(PERIFCARD& card, const CARD_REPLY& reply) {
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

// The tables name the shortest reply that each kind can be: a shorter one is ignored.

struct INPUT_KIND {
  CARD_CODE type;
  std::size_t shortest;
  bool (*take)(PERIFCARD&, const CARD_REPLY&);
};
// clang-format off
constexpr INPUT_KIND kInputKinds[] = {
    // card type     shortest                               taken by
    {kDigitalInput,  bus::kReplyDataAt + 2,                 TakeDigitalInput},
    {kKeyMatrix,     bus::kReplyDataAt + 1,                 TakeKeyMatrix},
    {kAnalogueInput, bus::kReplyDataAt + kAnalogueChannels, TakeAnalogueInput},
};
// clang-format on

// --- replies, by kind ---------------------------------------------------------------------------

void Identify(PERIFCARD& card, std::uint8_t address, std::uint8_t typeCode) {
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

bool TakeIdentification(CARD_TABLE& cards, const CARD_REPLY& reply) {
  for (std::size_t slot = 0; slot < bus::kAddresses; ++slot) {
    cards.With(slot, [&](PERIFCARD& card) {
      Identify(card, static_cast<std::uint8_t>(slot), reply[1 + slot]);
    });
  }
  return false;
}

/// The change flags are left as they are, so that the lines of the card's last change go out again.
bool TakeQueryData(CARD_TABLE& cards, const CARD_REPLY& reply) {
  cards.With(reply[bus::kReplyAddressAt], [&](PERIFCARD& card) {
    card.queryBytes.fill(0);
    std::copy_n(reply.begin(), std::min(reply.size(), card.queryBytes.size()),
                card.queryBytes.begin());
  });
  return true;
}

bool TakeInput(PERIFCARD& card, const CARD_REPLY& reply) {
  const auto* const kind =
      std::find_if(std::begin(kInputKinds), std::end(kInputKinds),
                   [&](const INPUT_KIND& row) { return row.type == card.typeCode; });
  const bool known = kind != std::end(kInputKinds);
  if (known && reply.size() < kind->shortest) {
    return false;
  }
  card.changeFlags.fill(0);
  return known && kind->take(card, reply);
}

bool TakeInputData(CARD_TABLE& cards, const CARD_REPLY& reply) {
  return cards.With(reply[bus::kReplyAddressAt],
                    [&](PERIFCARD& card) { return TakeInput(card, reply); });
}

struct REPLY_KIND {
  std::uint8_t code;
  std::size_t shortest;
  bool isAddressed;  ///< byte 1 is a card address, below 16
  bool (*take)(CARD_TABLE&, const CARD_REPLY&);
};
// clang-format off
constexpr REPLY_KIND kReplyKinds[] = {
    // code                       shortest             addressed  taken by
    {bus::reply::kIdentification, 1 + bus::kAddresses, false,     TakeIdentification},
    {bus::reply::kQueryData,      2,                   true,      TakeQueryData},
    {bus::reply::kInputData,      2,                   true,      TakeInputData},
};
// clang-format on

}  // namespace

bool TakeReply(CARD_TABLE& cards, const CARD_REPLY& reply) {
  const auto* const kind =
      std::find_if(std::begin(kReplyKinds), std::end(kReplyKinds),
                   [&](const REPLY_KIND& row) { return row.code == reply[0]; });
  return kind != std::end(kReplyKinds) && reply.size() >= kind->shortest &&
         (!kind->isAddressed || reply[bus::kReplyAddressAt] < bus::kAddresses) &&
         kind->take(cards, reply);
}

std::vector<std::string> ChangedInputLines(const PERIFCARD& card) {
  std::vector<std::string> lines;
  for (std::size_t channel = 0; channel < kCardValues; ++channel) {
    if (card.changeFlags[channel] != 0) {
      lines.push_back(FormatInputLine(card.address, channel, card.values[channel]));
    }
  }
  return lines;
}
