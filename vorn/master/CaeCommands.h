#pragma once

#include "vorn/base/VoQueue.h"
#include "vorn/bus/CardBus.h"
#include "vorn/bus/CardTable.h"
#include "vorn/master/CaeLine.h"
#include "vorn/master/DaemonControl.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace vorn {

/// What the commands work with. Queues, cards and daemon are lent and outlive it.
struct CAE_CONTEXT {
  /// One message to the operator, with the separator behind it; none while muted.
  void Reply(const std::string& text);

  std::string outSeparator;
  VOQUEUE& output;                               ///< lines to the CAE client
  std::function<void(QList body)> queueRequest;  ///< a frame body for the bus
  VOQUEUE& inputLines;                           ///< card input as if reported by a card
  CARD_TABLE& cards;
  DAEMON_CONTROL& daemon;
  bool muted = false;
};

enum class CAE_MATCH : std::uint8_t {
  kExact,          ///< the whole line is the keyword and the separator
  kContains,       ///< the line holds the keyword and the separator
  kContainsAlone,  ///< the line holds the keyword
  kNever,          ///< the keyword is compared, and the line stays unknown
};

/// The cards that a command is for, and the answer where the addressed one is another.
struct CAE_CARDS {
  bool (*suits)(const PERIFCARD& card);
  const char* refusal;
};

/// What a command does before it answers: a request that the addressed card has to acknowledge, or
/// a function.
struct CAE_STEP {
  enum KIND : std::uint8_t {
    kNothing,
    kRun,         ///< `run`; false: refused
    kTell,        ///< tells the card to do `action`
    kWrite,       ///< writes the two digits behind "=" into `parameter`
    kWriteState,  ///< writes ON or OFF; anything else is the state of the command's last line
    kRead,        ///< reads `parameter`
  };
  KIND kind = kNothing;
  bool (*run)(CAE_CONTEXT& context, const CAE_LINE& line) = nullptr;
  std::uint8_t action = 0;
  bus::PARAMETER parameter = {};
  bus::PARAMETER parameterOfB = {};  ///< where the line's end position is "B", if there is one
};

/// An answer as for printf: %s shows a parameter of the line as it was typed, %X and %d the number
/// it was read as. `fields` names the parameters in their order: "x" address, "p" end position, "c"
/// channel, "v" value, "s" state, "n" number; "r" is the value that the card has answered.
struct CAE_REPLY {
  const char* format = nullptr;  ///< null: none
  const char* fields = "";
};

struct CAE_COMMAND {
  const char* keyword;
  CAE_MATCH match;
  const CAE_CARDS* cards;  ///< null: any, or none at all
  CAE_STEP step;
  const char* failure = nullptr;  ///< where it is refused, or the card does not acknowledge
  CAE_REPLY reply = {};           ///< else; a function that lists something replies itself
  CAE_REPLY result = {};          ///< and behind it, for programs

  bool Matches(const CAE_LINE& line) const;
};

/// All commands, in the order in which a line is tested against them.
std::span<const CAE_COMMAND> CaeCommands();

}  // namespace vorn
