// Replies of the bus to a worker that polls. The input: the type code of the card at each address
// (see the first bytes of a seed), then replies, each a length byte and its body. No reply, of
// whatever card, makes more than the documented lines, or spoils a record.

#include "tests/fuzz/support/Bus.h"
#include "tests/fuzz/support/Input.h"
#include "vorn/bus/SerialInterface.h"

#include <array>
#include <memory>
#include <string>
#include <utility>

namespace vorn {

namespace {

using fuzz::Require;

constexpr std::array<std::uint8_t, 11> kTypes = {0, 3, 4, 5, 6, 7, 8, 9, 10, 255, 42};

/// A reply that does not come, or not whole, costs 150000 reads, a hundred times what else a run
/// takes: one run in four may have one, by its first byte.
constexpr int kRunsToASilence = 4;
constexpr int kMostPasses = 400;

class REPLYING : public fuzz::BUS {
 public:
  explicit REPLYING(fuzz::INPUT& input) : m_input(input) {
    const std::uint8_t choice = m_input.Byte();
    for (std::size_t i = 0; i < bus::kAddresses; ++i) {
      m_types += static_cast<char>(kTypes.at((choice + i * (1U + choice / 64U)) % kTypes.size()));
    }
    m_maySilence = choice % kRunsToASilence == 0;
    m_worker = std::make_unique<SERIAL_INTERFACE>("", kSearchDevices, kNotConnected, LOGGER(),
                                                  m_lines, m_cards, true, true, *this, *this);
  }
  ~REPLYING() override {
    LetWorkersEnd();
    m_worker.reset();
  }
  REPLYING(const REPLYING&) = delete;
  REPLYING& operator=(const REPLYING&) = delete;

  void Run() {
    for (int pass = 0; pass < kMostPasses && !m_input.IsEmpty(); ++pass) {
      // Where no card is polled, the general queue asks.
      if (m_worker->BusQueue(SERIAL_INTERFACE::kGeneralQueue).IsEmpty()) {
        m_worker->BusQueue(SERIAL_INTERFACE::kGeneralQueue)
            .ToQueue({'P', static_cast<char>(pass % 16), '\x40', '\x01'});
      }
      m_worker->OnTask();
      RequireSoundness();
    }
    // The line is good again, and so is the daemon.
    m_maySilence = false;
    for (int pass = 0; pass < 5; ++pass) {
      m_worker->BusQueue(SERIAL_INTERFACE::kGeneralQueue).ToQueue({'0'});
      m_worker->OnTask();
      RequireSoundness();
    }
    Require(m_worker->LinkStatus() == kControllerFound, "the link comes back");
  }

 private:
  void RequireSoundness() {
    for (std::size_t address = 0; address < bus::kAddresses; ++address) {
      m_cards.With(address, [&](const PERIFCARD& card) { fuzz::RequireSound(card, address); });
      Require(m_worker->BusQueue(address).Size() <= 16, "polls do not pile up");
    }
    // Seventeen requests a pass, each of sixteen lines.
    Require(m_lines.Size() <= 17 * kCardValues, "a reply makes a line for each value at most");
    while (!m_lines.IsEmpty()) {
      const std::string line = fuzz::TextOf(m_lines.DeQueue());
      Require(fuzz::IsInputLine(line), "an input line is one", line);
      Require(m_answered.find(line[1]) != std::string::npos,
              "a line is of a card that has answered", line);
    }
    m_answered.clear();
  }

  void Answer(const std::string& body) override {
    if (body[0] == '@') {
      return Reply(Frame("o1.07"));
    }
    if (!m_identified && body[0] == '0') {
      m_identified = true;
      return Reply(Frame("1" + m_types));
    }
    if (m_input.IsEmpty()) {
      return Reply(Frame(body[0] == '0' ? "1" + m_types : std::string("A")));
    }
    const std::size_t length = m_input.Byte();
    const std::string reply = m_input.Text(length);
    if (reply.size() < length && !std::exchange(m_maySilence, false)) {
      return Reply(Frame("A"));
    }
    if (reply.size() > 1 && static_cast<std::uint8_t>(reply[1]) < bus::kAddresses) {
      m_answered += "0123456789ABCDEF"[static_cast<std::size_t>(reply[1])];
    }
    Reply(std::string(1, static_cast<char>(length)) + reply);
  }

  fuzz::INPUT& m_input;
  std::string m_types;
  std::string m_answered;
  bool m_identified = false;
  bool m_maySilence = false;  // the next reply that the input cuts off does not come whole
  VOQUEUE m_lines;
  CARD_TABLE m_cards;
  std::unique_ptr<SERIAL_INTERFACE> m_worker;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::INPUT input(data, size);
  REPLYING bus(input);
  bus.Run();
  return 0;
}

}  // namespace vorn
