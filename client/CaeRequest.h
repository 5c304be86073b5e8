#pragma once

#include "client/Cards.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The operator's commands: a line to send, and what the answer to it says.
namespace client {

enum class CAE_COMMAND : std::uint8_t {
  kSpeed,
  kDisablePolling,
  kDriverVersion,
  kSelfTest,
  kInitialLight,
  kReboot,
  kSetMask,
  kGetMask,
  kStoreMask,
  kStorePositions,
  kRecallPositions,
  kSetEnd,
  kGetEnd,
  kSetSilentRange,
  kGetSilentRange,
  kStoreSilentRanges,
  kPollOn,
  kPollOff,
  kEnablePolling,
  kPollState,
  kListCards,
  kIdentify,
  kExit,
  kLastInput,
  kHelp,
  kIoExamples,
  kTyped,  ///< a line as somebody typed it; any answer is its answer
};

/// A command with its parameters: what is sent, without the separator.
struct CAE_REQUEST {
  CAE_COMMAND command = CAE_COMMAND::kTyped;
  std::string line;
};

// Each throws BAD_VALUE where a parameter is out of range.

CAE_REQUEST SetSpeed(int percent);  ///< 1 to 100
CAE_REQUEST EnablePolling(bool on);
CAE_REQUEST PollCard(int address, bool on);
CAE_REQUEST AskPollState();
CAE_REQUEST AskVersion();
CAE_REQUEST ListCards();
/// Asks the bus first, for two seconds; all outputs count as at the start then.
CAE_REQUEST IdentifyCards();
CAE_REQUEST Reboot(int address);
/// `channel` is 0 where the card has the parameter once. A switch takes 00 for off, else on.
CAE_REQUEST SetParameter(int address, PARAMETER parameter, int channel, std::uint8_t value);
/// Throws BAD_VALUE for one that cannot be read, too.
CAE_REQUEST AskParameter(int address, PARAMETER parameter, int channel);
CAE_REQUEST StoreMask(int address);
CAE_REQUEST StorePositions(int address);
CAE_REQUEST RecallPositions(int address);
CAE_REQUEST StoreSilentRanges(int address);
/// Has the state come as a line on IO and MON.
CAE_REQUEST AskLastInput(int address, int block);
CAE_REQUEST AskHelp();
CAE_REQUEST AskIoExamples();
CAE_REQUEST EndCae();
/// As typed, at most kLongestCaeLine characters. Throws BAD_VALUE for a longer one, and one with a
/// zero byte, a carriage return or a line feed.
CAE_REQUEST TypedCae(std::string_view line);

/// What a read of the daemon's takes, the separator's two characters left out.
constexpr std::size_t kLongestCaeLine = 253;

// --- the answer ---------------------------------------------------------------------------------

enum class OUTCOME : std::uint8_t {
  kDone,
  kRefused,  ///< by the daemon or the card; the text is the daemon's own
  kTimeout,  ///< no answer in time: it may have been carried out all the same
  kLost,     ///< the connection ended before the answer: the same
};

/// The 16 slots, as listed.
using CARD_LIST = std::array<CARD_KIND, kAddresses>;

struct POLL_STATE {
  bool enabled = false;         ///< for all
  std::map<int, bool> cards{};  ///< by the address of each input card

  bool operator==(const POLL_STATE& other) const = default;
};

struct CAE_RESULT {
  OUTCOME outcome = OUTCOME::kDone;
  /// As they came, without the prompt at the end.
  std::vector<std::string> lines;
  /// A byte of a card, a version, the slots, the poll state; nothing where the answer has none.
  std::variant<std::monostate, std::uint8_t, std::string, CARD_LIST, POLL_STATE> value;

  /// The daemon's words for people: without "CIA: " or "CIE: " and the lines for programs behind
  /// it; where there is neither, all lines, with line feeds between them.
  std::string Text() const;
};

/// Collects the lines of the answer to one request. An answer that is not of this request, whole
/// and with its parameters in it, was left by an earlier one: it is skipped, up to its prompt.
/// Bounded: an answer keeps 128 lines, each of at most 4096 characters; what is more is dropped.
class CAE_ANSWER {
 public:
  explicit CAE_ANSWER(CAE_REQUEST request);

  /// Takes a line. True when the answer is complete: then Result() holds it. Lines after that are
  /// not taken.
  bool Take(std::string_view line);
  const CAE_RESULT& Result() const { return m_result; }

 private:
  /// Whether the lines are the answer; fills the result in, then.
  bool Judge();

  CAE_REQUEST m_request;
  CAE_RESULT m_result;
  bool m_isComplete = false;
};

/// What an IO client has sent and the daemon refused, as it tells the operator.
struct REFUSAL {
  std::string line;      ///< the IO line, as it was typed
  bool isFault = false;  ///< an error in the daemon itself
};
/// Nothing where the line is no such report. Its own prompt follows it.
std::optional<REFUSAL> ReadRefusal(std::string_view line);

constexpr std::string_view kPrompt = ">";

}  // namespace client
