#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorn {

// How much may wait between the threads: in which queue, up to where, and what happens beyond that.
//
// The queues count bytes of message (VOQUEUE::Bytes): each message its own bytes and one more. A
// byte of a byte list takes 32 bytes of memory where pointers have 64 bits, and 16 where they have
// 32; the one more pays for what holds the list. So all that can wait takes MostWaitingBytes()
// times 32, or 16: with the program itself it stays under 32 MB, and under 16 MB on the board.

/// The one number that the others follow from. Four of it are some four hundred commands of an
/// operator, each of which may take a second, or some six hundred frames of a bus queue.
constexpr std::size_t kBudgetShare = 1024;

enum class QUEUE_KIND : std::uint8_t {
  kCaeInput,    ///< to the master loop
  kIoInput,     ///< the same
  kBus,         ///< requests, a queue for each card and a general one
  kInputLines,  ///< the cards to the master loop
  kIoOutput,
  kMonOutput,
  kCaeOutput,
};

/// Each is a mark in a queue: what happens where so much waits in it already.
enum class MARK : std::uint8_t {
  kOperatorIsHeldBack,
  kLeftOperatorIsCut,
  kMachineIsHeldBack,
  kLeftMachineIsCut,
  kBusIsBehind,
  kPollingPauses,
  kOperatorWaitsForLines,
  kLinesAreLost,
  kFarewellIsNotMade,
  kLinesWaitForIo,
  kCopiesAreNotMade,
  kReportsAreNotMade,
  kOperatorWaitsForAnswers,
};

struct BUDGET_ROW {
  MARK mark;
  QUEUE_KIND queue;
  std::size_t queues;  ///< so many of them
  std::size_t shares;  ///< so much in each
  const char* what;
  const char* beyond;
};

// clang-format off
constexpr std::array<BUDGET_ROW, 13> kBudget = {{
    // mark                          queue                     queues  shares
    {MARK::kOperatorIsHeldBack,      QUEUE_KIND::kCaeInput,     1,   4,
     "messages from a CAE client",
     "the worker does not read; TCP holds the client back; nothing is lost"},
    {MARK::kLeftOperatorIsCut,       QUEUE_KIND::kCaeInput,     1,  24,
     "messages from a CAE client that has left",
     "the worker reads no more of it, and the log says so"},
    {MARK::kMachineIsHeldBack,       QUEUE_KIND::kIoInput,      1,  40,
     "messages from an IO client",
     "the worker does not read; TCP holds the client back; nothing is lost"},
    {MARK::kLeftMachineIsCut,        QUEUE_KIND::kIoInput,      1,  64,
     "messages from an IO client that has left",
     "the worker reads no more of it, and the log says so"},
    {MARK::kBusIsBehind,             QUEUE_KIND::kBus,         17,   4,
     "requests for one card, or for no single one",
     "with a link the master loop takes no IO message; without one the oldest are dropped, and the log says so"},
    {MARK::kPollingPauses,           QUEUE_KIND::kInputLines,   1,  24,
     "input lines for the master loop",
     "no card is polled; what changes meanwhile is reported by a later poll"},
    {MARK::kOperatorWaitsForLines,   QUEUE_KIND::kInputLines,   1,  28,
     "the same, with those that the operator has asked for again",
     "the master loop takes no CAE command"},
    {MARK::kLinesAreLost,            QUEUE_KIND::kInputLines,   1,  32,
     "the same, with those of cards that report without a poll",
     "further ones are dropped, and the log says so"},
    {MARK::kFarewellIsNotMade,       QUEUE_KIND::kIoOutput,     1,  20,
     "the farewell to an IO client that does not read",
     "it is closed without one"},
    {MARK::kLinesWaitForIo,          QUEUE_KIND::kIoOutput,     1,  24,
     "input lines for an IO client that does not read",
     "they wait for the master loop, until that pauses the polling"},
    {MARK::kCopiesAreNotMade,        QUEUE_KIND::kMonOutput,    1, 208,
     "copies for a MON client",
     "further ones are not made, and the log says so"},
    {MARK::kReportsAreNotMade,       QUEUE_KIND::kCaeOutput,    1, 320,
     "messages for the operator",
     "further reports of refused IO commands are not made, and the log says so"},
    {MARK::kOperatorWaitsForAnswers, QUEUE_KIND::kCaeOutput,    1, 336,
     "the same, where they are answers",
     "the master loop takes no CAE command; when the operator has gone, his commands run without an answer, and the log says so"},
}};
// clang-format on

/// Bytes of message at which a mark stands.
constexpr std::size_t BytesAt(MARK mark) {
  std::size_t bytes = 0;
  for (const BUDGET_ROW& row : kBudget) {
    bytes += row.mark == mark ? row.shares * kBudgetShare : 0;
  }
  return bytes;
}

/// All that can wait, with every queue filled to its last mark.
constexpr std::size_t MostWaitingBytes() {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < kBudget.size(); ++i) {
    const bool isLastOfQueue =
        i + 1 == kBudget.size() || kBudget.at(i + 1).queue != kBudget.at(i).queue;
    bytes += isLastOfQueue ? kBudget.at(i).queues * kBudget.at(i).shares * kBudgetShare : 0;
  }
  return bytes;
}

}  // namespace vorn
