// The byte stream of a reply, split at will. The input: choices, a count of cuts, where they are,
// what stood on the line before, then the stream. However it is split, the reply is the same.

#include "tests/fuzz/support/Bus.h"
#include "tests/fuzz/support/Input.h"
#include "vorn/bus/SerialInterface.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace vorn {

namespace {

using fuzz::Require;

constexpr std::size_t kLongestReply = 135;
constexpr std::size_t kRead = 255;  // the daemon reads so much at a time
constexpr std::uint8_t kMayBeShort = 0xFF;

class SPLITTING : public fuzz::BUS {
 public:
  SPLITTING()
      : m_worker(std::make_unique<SERIAL_INTERFACE>("/dev/ttyUSB0", kFixedPath, kNotConnected,
                                                    LOGGER(), m_lines, m_cards, false, false, *this,
                                                    *this)) {
    m_reads = {Frame("o1.07")};
    Require(m_worker->Init(), "the controller is found");
  }
  ~SPLITTING() override {
    LetWorkersEnd();
    m_worker.reset();
  }
  SPLITTING(const SPLITTING&) = delete;
  SPLITTING& operator=(const SPLITTING&) = delete;

  std::string Exchange(const std::string& stale, const std::vector<std::string>& reads) {
    if (!stale.empty()) {
      Reply(stale);
    }
    m_reads = reads;
    return fuzz::TextOf(m_worker->Comm2HW({'P', '\x00', '\x40', '\x01'}));
  }

 private:
  void Answer(const std::string&) override { Reply(m_reads); }

  std::vector<std::string> m_reads;
  VOQUEUE m_lines;
  CARD_TABLE m_cards;
  std::unique_ptr<SERIAL_INTERFACE> m_worker;
};

std::string Expected(const std::string& stream) {
  const std::size_t length = stream.empty() ? 0 : static_cast<std::uint8_t>(stream[0]);
  if (stream.size() < length + 1) {
    return "TME";
  }
  return length > kLongestReply ? std::string() : stream.substr(1, length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::INPUT input(data, size);
  const std::uint8_t choices = input.Byte();
  std::vector<std::size_t> cuts(input.Byte() % 32U);
  for (std::size_t& cut : cuts) {
    cut = input.Byte();  // 0: a read that finds nothing
  }
  const std::string stale = input.Text(input.Byte());
  std::string stream = input.Rest();
  if (choices != kMayBeShort) {  // one that is not whole takes 150000 reads to give up
    const std::size_t length = stream.empty() ? 0 : static_cast<std::uint8_t>(stream[0]);
    stream.resize(std::max(stream.size(), length + 1));
  }

  std::vector<std::string> reads;
  std::size_t at = 0;
  for (const std::size_t cut : cuts) {
    reads.push_back(stream.substr(at, std::min(cut, kRead)));
    at = std::min(stream.size(), at + std::min(cut, kRead));
  }
  reads.push_back(stream.substr(at));

  const std::string expected = Expected(stream);
  SPLITTING line;
  Require(line.Exchange(stale, reads) == expected, "a split reply is the reply", stream);
  Require(line.Exchange("", {std::string("\x02Q\x07", 3)}) == "Q\x07", "the next one is whole",
          stream);
  return 0;
}

}  // namespace vorn
