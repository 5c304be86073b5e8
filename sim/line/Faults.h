#pragma once

#include "sim/line/Exchange.h"
#include "sim/rack/Result.h"
#include "sim/rack/Time.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// What can happen to an answer on its way.
enum class FAULT_KIND {
  kNoAnswer,
  kLate,
  kCut,
  kSplit,
  kTrailing,
  kLeading,
  kGarbage,
  kLength,
  kAddress,
  kError,
  kDuplicate,
};

/// What a fault needs to know besides its kind.
enum class FAULT_ARGUMENT { kNone, kMilliseconds, kCount, kBytes, kLength, kAddress, kError };

struct FAULT_TYPE {
  FAULT_KIND kind;
  const char* keyword;
  FAULT_ARGUMENT argument;
  const char* usage;
  const char* meaning;
};
// clang-format off
inline constexpr FAULT_TYPE kFaultTypes[] = {
    {FAULT_KIND::kNoAnswer,  "no-answer", FAULT_ARGUMENT::kNone,         "",        "the answer does not come"},
    {FAULT_KIND::kLate,      "late",      FAULT_ARGUMENT::kMilliseconds, "MS",      "the answer comes MS milliseconds late"},
    {FAULT_KIND::kCut,       "cut",       FAULT_ARGUMENT::kCount,        "K",       "only the first K bytes of the answer come (1: the length byte)"},
    {FAULT_KIND::kSplit,     "split",     FAULT_ARGUMENT::kMilliseconds, "MS",      "the answer comes byte by byte, MS milliseconds apart"},
    {FAULT_KIND::kTrailing,  "trailing",  FAULT_ARGUMENT::kBytes,        "HEX",     "HEX bytes follow the answer at once"},
    {FAULT_KIND::kLeading,   "leading",   FAULT_ARGUMENT::kBytes,        "HEX",     "HEX bytes come before the answer"},
    {FAULT_KIND::kGarbage,   "garbage",   FAULT_ARGUMENT::kBytes,        "HEX",     "HEX bytes come by themselves 2 ms after the answer"},
    {FAULT_KIND::kLength,    "length",    FAULT_ARGUMENT::kLength,       "short|long|over|zero|HH", "the answer's length byte is wrong: one too small, one too large, C8, 00 or HH"},
    {FAULT_KIND::kAddress,   "address",   FAULT_ARGUMENT::kAddress,      "HH",      "the answer names address HH"},
    {FAULT_KIND::kError,     "error",     FAULT_ARGUMENT::kError,        "CODE",    "an error comes in place of the answer"},
    {FAULT_KIND::kDuplicate, "duplicate", FAULT_ARGUMENT::kNone,         "",        "the answer comes twice"},
};
// clang-format on

const FAULT_TYPE& FaultType(FAULT_KIND kind);

/// How a wrong length byte comes about.
enum class LENGTH_FAULT { kShort, kLong, kOver, kZero, kValue };
struct LENGTH_WORD {
  LENGTH_FAULT length;
  const char* keyword;
};
/// Those with a name; kValue is named by its byte.
inline constexpr LENGTH_WORD kLengthWords[] = {{LENGTH_FAULT::kShort, "short"},
                                               {LENGTH_FAULT::kLong, "long"},
                                               {LENGTH_FAULT::kOver, "over"},
                                               {LENGTH_FAULT::kZero, "zero"}};

/// Longer than any buffer that expects answers of at most 17 bytes.
constexpr std::uint8_t kOverLength = 200;

/// One fault: what, to which requests, how often.
struct FAULT {
  FAULT_KIND kind = FAULT_KIND::kNoAnswer;
  std::chrono::microseconds time{0};  // kLate, kSplit
  std::size_t count = 0;              // kCut
  Bytes bytes{};                      // kTrailing, kLeading, kGarbage
  LENGTH_FAULT length = LENGTH_FAULT::kValue;
  std::uint8_t value = 0;  // kLength (kValue), kAddress, kError: the byte

  std::optional<std::uint8_t> address{};   // only requests to this card
  std::optional<std::uint8_t> code{};      // only requests that begin with this byte
  std::optional<std::uint64_t> times = 1;  // so often; nothing: without end
  /// Not longer; in a list, what is left of it.
  std::optional<std::chrono::milliseconds> lasts{};
};

/// A fault as it stands in the list.
struct ACTIVE_FAULT {
  int number = 0;  // 1 for the first; never repeated
  FAULT fault;
  std::optional<TIME> until{};
};

/// "cut 3": what happens to an answer.
std::string DescribeEffect(const FAULT& fault);
/// "cut 3 on 5 code 20 times 2": as a person would order it.
std::string Describe(const FAULT& fault);

/// Applies one fault to an answer, whether or not the fault is meant for the request. False when it
/// cannot be (an answer that names no address, no answer at all).
bool ApplyFault(const FAULT& fault, const Bytes& request, REPLY& reply);

/// The faults in force. Written by the operator's thread, asked by the adapters' threads; its own
/// lock guards it.
class FAULT_ENGINE {
 public:
  explicit FAULT_ENGINE(CLOCK clock) : m_clock(std::move(clock)) {}

  /// Returns the number of the new fault.
  int Add(FAULT fault);
  std::vector<ACTIVE_FAULT> List() const;
  /// False when there is no such fault.
  bool Clear(int number);
  void ClearAll();

  /// Lets all that apply to the request change the answer, in the order in which they were added,
  /// and returns their effects. Faults that are used up or over are removed.
  std::vector<std::string> Apply(const REQUEST& request, REPLY& reply);

 private:
  const CLOCK m_clock;
  mutable std::mutex m_mutex;  // guards the two below
  std::vector<ACTIVE_FAULT> m_faults;
  int m_last = 0;
};

}  // namespace sim
