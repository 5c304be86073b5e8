#pragma once

#include "client/BadValue.h"
#include "client/Session.h"
#include "vornctl/Link.h"
#include "vornctl/Notation.h"
#include "vornctl/Output.h"
#include "vornctl/Settings.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The option parser's own names.
namespace CLI {  // NOLINT(readability-identifier-naming)
class App;       // NOLINT(readability-identifier-naming)
}  // namespace CLI

namespace ctl {

/// What stood behind a command's name. Of each command only its own members are set.
struct ARGUMENTS {
  std::vector<std::string> words;  ///< all that are no options, in their order
  std::string at;                  ///< lcd --at
  std::string others;              ///< set, pulse --others
  std::string text;                ///< ir --text
  std::vector<std::string> only;   ///< status --only
  double forSeconds = -1;          ///< watch, wait --for; negative: no limit
  int count = 0;                   ///< watch --count; 0: no limit
  bool rescan = false;
  bool monitor = false;
  bool raw = false;
  bool keepGoing = false;
};

/// The lines of a batch whose IO lines are on their way.
struct SERIES {
  /// An IO line, and the line of the batch that it is the first of.
  struct ORIGIN {
    client::DELIVERY::NUMBER first;
    int line;
  };

  bool isOn = false;  ///< lines are sent one behind the other; what became of them is told later
  int line = 0;       ///< of the batch, that of the present command, from 1
  /// Since the last time that all was known.
  std::vector<ORIGIN> origins;
};

/// All that a command works with; made once for the program. On its only thread.
struct CONTEXT {
  OUTPUT& output;
  LINK& link;
  bool dryRun = false;     ///< shows what would be sent
  bool unchecked = false;  ///< leaves CAE and MON to others where they only prove something
  bool isLong = false;     ///< more commands follow: an interface that one has used is kept
  SERIES series;
  /// Output blocks that this program has set, by card and number: nobody else can, while it holds
  /// IO. Forgotten when it loses IO, and where a card or vorn goes back to its start.
  std::map<std::pair<int, int>, std::uint8_t> blocks;
  /// IO lines that the daemon has refused since the last look.
  std::vector<std::pair<client::DELIVERY::NUMBER, std::string>> refused;
};

/// What can follow a command, for completion.
enum class WORDS : std::uint8_t {
  kNone,
  kFixed,     ///< the command's own words
  kCards,     ///< an address
  kInputs,    ///< places of input cards, names
  kOutputs,   ///< places of output cards with "=", names
  kInputsIs,  ///< places of input cards with "="
  kLcdCards,
  kIrCards,
  kParameters,  ///< an address, then the names of its card's parameters
  kFiles,
};

enum class USE : std::uint8_t {
  kAnywhere,  ///< on the command line, in a batch, at the prompt
  kAlone,     ///< on the command line
  kInSeries,  ///< in a batch and at the prompt
};

struct COMMAND {
  const char* name;
  const char* form;   ///< of what follows the name, as in the manual
  const char* about;  ///< one line
  USE use;
  bool sendsOnly;  ///< IO lines and nothing else: in a batch the next need not wait for them
  WORDS words;
  const char* fixedWords;  ///< separated by blanks; may follow whatever else may
  void (*declare)(CLI::App& command, ARGUMENTS& arguments);
  void (*run)(CONTEXT& context, const ARGUMENTS& arguments);
};

// --- for the commands themselves ----------------------------------------------------------------

/// Does what a request asks, or shows it. Nothing with --dry-run.
std::optional<client::CAE_RESULT> Do(CONTEXT& context, const client::CAE_REQUEST& request);

/// The same for one that has nothing to show: with --json a record says that it is done.
void DoAndTell(CONTEXT& context, const client::CAE_REQUEST& request);

/// What sending needs, and what proves it.
void OpenForSending(CONTEXT& context);
/// Sends a line on IO, which must be open; nothing with --dry-run. Remembers what it sets.
client::DELIVERY::NUMBER SendLine(CONTEXT& context, const std::string& line);
/// Sends lines on IO and says what became of them; in a series that is told by SettleSeries.
void SendLines(CONTEXT& context, const std::vector<std::string>& lines);

/// Waits until it is known what became of lines that were sent, and says it. Throws FAILURE,
/// kRefused.
void TellSent(CONTEXT& context, const std::vector<std::string>& lines);

/// A line of a series that the daemon has refused.
struct REFUSED_LINE {
  int line;  ///< of the batch; 0: not known
  FAILURE failure;
};
/// Waits until all is known of what a series has sent, and says it; answers with what was refused.
std::vector<REFUSED_LINE> SettleSeries(CONTEXT& context);

/// The address of a card. Throws FAILURE, kUsage, for another word.
int ReadAddress(const std::string& word);
/// The same, and the card there must be of that kind. Throws FAILURE, kNoSuch.
int FindCard(CONTEXT& context, const std::string& word, client::CARD_KIND kind);
/// What is at an address as far as that can be known without waiting for CAE.
std::optional<client::CARD_KIND> FindKind(CONTEXT& context, int address);
/// A card must be there. Throws FAILURE, kNoSuch.
const client::CARD_TYPE& FindAnyCard(CONTEXT& context, int address);

/// What `make` makes with the client library, whose refusals of a value become a FAILURE, kUsage.
template <class MAKE>
auto Checked(const MAKE& make) {
  try {
    return make();
  } catch (const client::BAD_VALUE& error) {
    throw FAILURE(EXIT_STATUS::kUsage, error.what());
  }
}

client::TIME TimeAfter(double seconds);

/// Has the states of inputs told on IO, which CAE must be ready for: those of the places, or of all
/// inputs where there are none. Another client of IO would get the lines, too.
void TellStates(CONTEXT& context, const std::vector<PLACE>& places);

}  // namespace ctl
