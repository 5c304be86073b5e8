#pragma once

#include "vorn/bus/CardTable.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vorn {

// What the cards' replies make of their records. No thread, no port, no queue: the worker calls
// these with what the bus has said.

/// A reply's body.
using CARD_REPLY = std::vector<std::uint8_t>;

/// Takes a reply, of at least one byte, into the record that it is about, or all of them for an
/// identification; one of an unknown kind, too short or with an address above 15 is ignored. True
/// when the changed inputs of the card in its byte 1 are to be reported.
bool TakeReply(CARD_TABLE& cards, const CARD_REPLY& reply);

/// A line, as FormatInputLine makes it, for each channel whose change flag is set.
std::vector<std::string> ChangedInputLines(const PERIFCARD& card);

}  // namespace vorn
