#pragma once

#include "sim/line/Adapter.h"
#include "tests/support/TcpClient.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// Traffic that counts: what arrives shows what became of each message.

/// Block commands to one output card of the rack. Each changes one of the card's values, in turn,
/// and its frame tells all of them: it is that of one command in a long row.
class COUNTED_CARD {
 public:
  /// A card with so many values, which are all the same at the start.
  constexpr COUNTED_CARD(int address, int values, int startValue)
      : m_address(address), m_values(values), m_startValue(startValue) {}

  int Address() const { return m_address; }
  /// "a5b0d00"; commands count from 0.
  std::string Command(int number) const;
  /// Several of them, as lines of the IO client.
  std::string Lines(int first, int count) const;
  /// What comes over the line for a command, where all before it were carried out.
  sim::Bytes Frame(int number) const;
  /// Frames repeat themselves after so many commands.
  int Period() const { return 256 * m_values; }
  /// A command behind the first so many, whose frame is none of the row's.
  std::string EndCommand(int count) const;
  sim::Bytes EndFrame(int count) const;
  /// The number of a frame within a period; nothing where no row of commands leads to it.
  std::optional<int> NumberOf(const sim::Bytes& frame) const;

 private:
  int ValueOf(int number) const { return (number / m_values + m_startValue + 1) % 256; }

  int m_address;
  int m_values;
  int m_startValue;
};

inline constexpr COUNTED_CARD kServoCard{0, 6, 0x80};
inline constexpr COUNTED_CARD kMotorCard{1, 4, 0x00};
inline constexpr COUNTED_CARD kOutputCard{5, 2, 0xFF};

/// "b0001F": a command that is refused, and reported to the operator.
std::string RefusedCommand(int number);

/// The messages of a connection, each without the end that all of them have; one that is cut off at
/// the end of the text does not count.
std::vector<std::string> Messages(std::string_view text, std::string_view end);

/// Stands at the adapter: keeps all outputs, counts the polls, and answers in the rack's place
/// where a test wants it. Used by the test's threads and the adapter's.
class BUS_WATCH {
 public:
  explicit BUS_WATCH(sim::ADAPTER& adapter);
  ~BUS_WATCH();
  BUS_WATCH(const BUS_WATCH&) = delete;
  BUS_WATCH& operator=(const BUS_WATCH&) = delete;

  /// From now on card 3 answers each poll with another first block, which counts from 01: an input
  /// line at each of them.
  void StartInputs();
  /// From now on the inputs stay as they are.
  void StopInputs();
  /// So many there were.
  int Inputs() const;

  /// While it is so, nothing is answered.
  void BeSilent(bool isSilent);

  /// From now on each output is answered with an identification of the rack's cards.
  void IdentifyAtOutputs();

  /// Frames of outputs to that address so far, the oldest first.
  std::vector<sim::Bytes> Outputs(int address) const;
  std::size_t CountOutputs(int address) const;
  /// Empty where there was none.
  sim::Bytes LastOutput(int address) const;

  int CountPolls(int address) const;
  /// Of the longest poll so far, in bytes, its length byte included.
  std::size_t LongestPoll() const;

 private:
  struct STATE;
  static std::optional<sim::REPLY> OnRequest(STATE& state, const sim::Bytes& frame);

  sim::ADAPTER& m_adapter;
  std::shared_ptr<STATE> m_state;  // the adapter's thread has a share in it
};

/// What such an input is told as, without its end: "a3b0d01".
std::string InputLine(int input);

/// In such lines, each of which is to tell the input that comes next.
struct INPUT_GAPS {
  std::optional<std::string> torn;  // the first that is no such line
  int gaps = 0;                     // places where some are missing
  int missing = 0;                  // all of those; 256 in a row are not noticed
};
INPUT_GAPS FindInputGaps(const std::vector<std::string>& lines);

/// Takes what comes on a connection, from the constructor to the destructor; the connection's
/// reading side is its own meanwhile.
class COLLECTOR {
 public:
  explicit COLLECTOR(support::TCP_CLIENT& client);
  ~COLLECTOR() { Stop(); }
  COLLECTOR(const COLLECTOR&) = delete;
  COLLECTOR& operator=(const COLLECTOR&) = delete;

  /// Waits until that has come last of all.
  bool WaitForEnd(std::string_view text, support::milliseconds limit = support::kLimit) const;
  std::size_t Size() const;
  /// All that has come.
  std::string Stop();

 private:
  std::atomic<bool> m_isOver{false};
  mutable std::mutex m_mutex;
  std::string m_text;  // guarded by m_mutex
  std::thread m_thread;
};
