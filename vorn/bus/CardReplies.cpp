#include "vorn/bus/CardReplies.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace vorn {

namespace {

// --- input data, by type of card ----------------------------------------------------------------

/// Stores and flags the values that differ; true when one did.
bool StoreChanges(PERIFCARD& card, const std::uint8_t* values, std::size_t count) {
  bool changed = false;
  for (std::size_t channel = 0; channel < count; ++channel) {
    if (card.values[channel] != values[channel]) {
      card.values[channel] = values[channel];
      card.changeFlags[channel] = 1;
      changed = true;
    }
  }
  return changed;
}

/// Sums the samples up to a report's worth; the reply after that only makes the report.
bool TakeSample(PERIFCARD& card, const std::uint8_t* sample, std::size_t count) {
  if (card.sampleCount < card.samplesPerReport || card.sampleCount <= 0) {
    std::transform(sample, sample + count, card.analogueSums.begin(), card.analogueSums.begin(),
                   [](std::uint8_t value, std::int32_t sum) { return sum + value; });
    ++card.sampleCount;
    return false;
  }
  std::array<std::uint8_t, kAnalogueChannels> averages{};
  std::transform(
      card.analogueSums.begin(), card.analogueSums.end(), averages.begin(),
      [&](std::int32_t sum) { return static_cast<std::uint8_t>(sum / card.sampleCount); });
  card.sampleCount = 0;
  card.analogueSums.fill(0);
  return StoreChanges(card, averages.data(), count);
}

struct INPUT_KIND {
  CARD_CODE type;
  std::size_t values;  ///< of a reply, a byte each; a shorter one is ignored
  bool (*take)(PERIFCARD&, const std::uint8_t* values, std::size_t count);
};
constexpr INPUT_KIND kInputKinds[] = {
    {kDigitalInput, 2, StoreChanges},
    {kKeyMatrix, 1, StoreChanges},
    {kAnalogueInput, kAnalogueChannels, TakeSample},
};

// --- replies, by kind: true when changed inputs are to be reported ------------------------------

bool Identify(PERIFCARD& card, const CARD_REPLY& reply) {
  card.typeCode = reply[std::size_t{1} + card.address];
  const CARD_TYPE& type = FindCardType(card.typeCode);
  card.SetName(type.name);
  card.stateWord = type.state;
  card.channelCount = type.channels;
  std::fill_n(card.values.begin(), type.presetValues, type.preset);
  if (type.pollCount != 0) {
    card.pollFlag = 1;
    const QList poll = bus::PollRequest(card.address, type.pollCount);
    // In a body that fits no frame the card would never be polled again.
    if (card.pollFrame.size() + poll.size() <= bus::kLongestRequest) {
      card.pollFrame.insert(card.pollFrame.end(), poll.begin(), poll.end());
    }
  }
  return false;
}

/// The change flags are left as they are, so that the lines of the card's last change go out again.
bool TakeQueryData(PERIFCARD& card, const CARD_REPLY& reply) {
  card.queryBytes.fill(0);
  std::copy_n(reply.begin(), std::min(reply.size(), card.queryBytes.size()),
              card.queryBytes.begin());
  return true;
}

bool TakeInputData(PERIFCARD& card, const CARD_REPLY& reply) {
  const auto* const kind =
      std::find_if(std::begin(kInputKinds), std::end(kInputKinds),
                   [&](const INPUT_KIND& row) { return row.type == card.typeCode; });
  const bool known = kind != std::end(kInputKinds);
  if (known && reply.size() < bus::kReplyDataAt + kind->values) {
    return false;
  }
  card.changeFlags.fill(0);
  return known && kind->take(card, reply.data() + bus::kReplyDataAt, kind->values);
}

struct REPLY_KIND {
  std::uint8_t code;
  std::size_t shortest;  ///< a shorter one is ignored
  bool isAddressed;      ///< to the card in byte 1; else to all of them
  bool (*take)(PERIFCARD&, const CARD_REPLY&);
};
constexpr REPLY_KIND kReplyKinds[] = {
    {bus::reply::kIdentification, 1 + bus::kAddresses, false, Identify},
    {bus::reply::kQueryData, 2, true, TakeQueryData},
    {bus::reply::kInputData, 2, true, TakeInputData},
};

}  // namespace

bool TakeReply(CARD_TABLE& cards, const CARD_REPLY& reply) {
  const auto* const kind =
      std::find_if(std::begin(kReplyKinds), std::end(kReplyKinds),
                   [&](const REPLY_KIND& row) { return row.code == reply[0]; });
  if (kind == std::end(kReplyKinds) || reply.size() < kind->shortest) {
    return false;
  }
  const auto take = [&](PERIFCARD& card) { return kind->take(card, reply); };
  if (kind->isAddressed) {
    const std::size_t address = reply[bus::kReplyAddressAt];
    return address < bus::kAddresses && cards.With(address, take);
  }
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    cards.With(address, take);
  }
  return false;
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

}  // namespace vorn
