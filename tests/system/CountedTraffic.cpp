#include "tests/system/CountedTraffic.h"

#include "sim/rack/Bytes.h"
#include "sim/rack/Protocol.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace {

/// A request's frame: the length byte, the request, the address; an output's number of values, and
/// these.
constexpr std::size_t kRequestAt = 1;
constexpr std::size_t kAddressAt = 2;
constexpr std::size_t kValuesAt = 4;

constexpr int kInputCard = 3;

/// What the rack's identification tells of its slots.
constexpr std::uint8_t kCards[] = {
    sim::type::kServo,        sim::type::kMotor, sim::type::kEmpty,
    sim::type::kDigitalInput, sim::type::kEmpty, sim::type::kDigitalOutput,
    sim::type::kEmpty,        sim::type::kEmpty, sim::type::kKeys,
    sim::type::kIr,           sim::type::kEmpty, sim::type::kEmpty,
    sim::type::kEmpty,        sim::type::kEmpty, sim::type::kLcd,
    sim::type::kAnalogue};

/// Beside the row by so much no frame of it comes near.
constexpr int kBeside = 100;

std::string BlockCommand(int address, int block, int value) {
  char text[16];
  std::snprintf(text, sizeof text, "a%Xb%Xd%02X", static_cast<unsigned int>(address),
                static_cast<unsigned int>(block), static_cast<unsigned int>(value));
  return text;
}

}  // namespace

// --- commands -----------------------------------------------------------------------------------

std::string COUNTED_CARD::Command(int number) const {
  return BlockCommand(m_address, number % m_values, ValueOf(number));
}

std::string COUNTED_CARD::Lines(int first, int count) const {
  std::string lines;
  for (int number = first; number < first + count; ++number) {
    lines += Command(number) + "\n";
  }
  return lines;
}

sim::Bytes COUNTED_CARD::Frame(int number) const {
  sim::Bytes body{sim::request::kOutput, static_cast<std::uint8_t>(m_address),
                  static_cast<std::uint8_t>(m_values)};
  for (int value = 0; value < m_values; ++value) {
    const bool isOfThisRound = value <= number % m_values;
    body.push_back(static_cast<std::uint8_t>(ValueOf(number) - (isOfThisRound ? 0 : 1)));
  }
  return sim::Frame(body);
}

std::string COUNTED_CARD::EndCommand(int count) const {
  return BlockCommand(m_address, 0, EndFrame(count)[kValuesAt]);
}

sim::Bytes COUNTED_CARD::EndFrame(int count) const {
  sim::Bytes frame = Frame(count - 1);
  frame[kValuesAt] = static_cast<std::uint8_t>(frame[kValuesAt] + kBeside);
  return frame;
}

std::optional<int> COUNTED_CARD::NumberOf(const sim::Bytes& frame) const {
  if (frame.size() <= kValuesAt) {
    return std::nullopt;
  }
  const int round = (frame[kValuesAt] - m_startValue - 1 + 512) % 256;
  for (int value = 0; value < m_values; ++value) {
    const int number = round * m_values + value;
    if (frame == Frame(number)) {
      return number;
    }
  }
  return std::nullopt;
}

std::string RefusedCommand(int number) {
  char text[16];
  std::snprintf(text, sizeof text, "b%05X", static_cast<unsigned int>(number));
  return text;
}

std::vector<std::string> Messages(std::string_view text, std::string_view end) {
  std::vector<std::string> messages;
  for (auto at = text.find(end); at != std::string_view::npos; at = text.find(end)) {
    messages.emplace_back(text.substr(0, at));
    text.remove_prefix(at + end.size());
  }
  return messages;
}

// --- the bus ------------------------------------------------------------------------------------

struct BUS_WATCH::STATE {
  std::mutex mutex;  // guards all below
  bool areInputsCounted = false;
  bool areInputsStill = false;
  bool isIdentifying = false;
  bool isSilent = false;
  int inputs = 0;
  std::array<std::vector<sim::Bytes>, sim::kSlots> outputs;
  std::array<int, sim::kSlots> polls{};
  std::size_t longestPoll = 0;
};

BUS_WATCH::BUS_WATCH(sim::ADAPTER& adapter)
    : m_adapter(adapter), m_state(std::make_shared<STATE>()) {
  m_adapter.SetReplyHook(
      [state = m_state](const sim::REQUEST& request, const std::optional<sim::Bytes>&) {
        const std::lock_guard lock(state->mutex);
        return OnRequest(*state, request.frame);
      });
}

BUS_WATCH::~BUS_WATCH() {
  m_adapter.SetReplyHook(nullptr);
}

std::optional<sim::REPLY> BUS_WATCH::OnRequest(STATE& state, const sim::Bytes& frame) {
  const auto silence = [&] { return state.isSilent ? std::optional(sim::REPLY()) : std::nullopt; };
  if (frame.size() <= kAddressAt || frame[kAddressAt] >= sim::kSlots) {
    return silence();
  }
  const std::uint8_t address = frame[kAddressAt];
  sim::Bytes answer;
  if (frame[kRequestAt] == sim::request::kOutput) {
    state.outputs.at(address).push_back(frame);
    if (state.isIdentifying) {
      answer = {sim::reply::kIdentified};
      answer.insert(answer.end(), std::begin(kCards), std::end(kCards));
    }
  } else if (frame[kRequestAt] == sim::request::kPoll) {
    ++state.polls.at(address);
    state.longestPoll = std::max(state.longestPoll, frame.size());
    if (address == kInputCard && state.areInputsCounted) {
      state.inputs += state.areInputsStill || state.isSilent ? 0 : 1;
      answer = {sim::reply::kInput, kInputCard, static_cast<std::uint8_t>(state.inputs), 0};
    }
  }
  if (answer.empty() || state.isSilent) {
    return silence();
  }
  return sim::REPLY{{std::chrono::microseconds(0), sim::Frame(answer)}};
}

void BUS_WATCH::StartInputs() {
  const std::lock_guard lock(m_state->mutex);
  m_state->areInputsCounted = true;
  m_state->areInputsStill = false;
}

void BUS_WATCH::StopInputs() {
  const std::lock_guard lock(m_state->mutex);
  m_state->areInputsStill = true;
}

int BUS_WATCH::Inputs() const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->inputs;
}

void BUS_WATCH::BeSilent(bool isSilent) {
  const std::lock_guard lock(m_state->mutex);
  m_state->isSilent = isSilent;
}

void BUS_WATCH::IdentifyAtOutputs() {
  const std::lock_guard lock(m_state->mutex);
  m_state->isIdentifying = true;
}

std::vector<sim::Bytes> BUS_WATCH::Outputs(int address) const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->outputs.at(static_cast<std::size_t>(address));
}

std::size_t BUS_WATCH::CountOutputs(int address) const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->outputs.at(static_cast<std::size_t>(address)).size();
}

sim::Bytes BUS_WATCH::LastOutput(int address) const {
  const std::lock_guard lock(m_state->mutex);
  const std::vector<sim::Bytes>& outputs = m_state->outputs.at(static_cast<std::size_t>(address));
  return outputs.empty() ? sim::Bytes() : outputs.back();
}

int BUS_WATCH::CountPolls(int address) const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->polls.at(static_cast<std::size_t>(address));
}

std::size_t BUS_WATCH::LongestPoll() const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->longestPoll;
}

std::string InputLine(int input) {
  return "a3b0d" + sim::ToHex(static_cast<std::uint8_t>(input));
}

INPUT_GAPS FindInputGaps(const std::vector<std::string>& lines) {
  INPUT_GAPS found;
  std::optional<int> last;
  for (const std::string& line : lines) {
    int input = last.value_or(-1) + 1;
    int missing = 0;
    while (line != InputLine(input)) {
      ++input;
      if (++missing == 256) {
        found.torn = line;
        return found;
      }
    }
    if (last && missing > 0) {
      ++found.gaps;
      found.missing += missing;
    }
    last = input % 256;
  }
  return found;
}

// --- connections --------------------------------------------------------------------------------

COLLECTOR::COLLECTOR(support::TCP_CLIENT& client)
    : m_thread([this, &client] {
        constexpr std::size_t kPiece = 4096;
        constexpr support::milliseconds kLook{20};
        while (!m_isOver) {
          const std::string piece = client.Read(kPiece, kLook);
          if (piece.empty()) {  // at once, where the connection has ended
            std::this_thread::sleep_for(support::milliseconds(1));
          }
          const std::lock_guard lock(m_mutex);
          m_text += piece;
        }
      }) {
}

bool COLLECTOR::WaitForEnd(std::string_view text, support::milliseconds limit) const {
  return support::WaitUntil(
      [&] {
        const std::lock_guard lock(m_mutex);
        return m_text.ends_with(text);
      },
      limit);
}

std::size_t COLLECTOR::Size() const {
  const std::lock_guard lock(m_mutex);
  return m_text.size();
}

std::string COLLECTOR::Stop() {
  m_isOver = true;
  if (m_thread.joinable()) {
    m_thread.join();
  }
  return m_text;
}
