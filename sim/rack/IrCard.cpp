#include "sim/rack/Card.h"

#include <deque>

namespace sim {

namespace {

/// Sends streams; keeps the last of them.
class IR_CARD : public CARD {
 public:
  IR_CARD(int address, REPORT report) : CARD(type::kIr, address, std::move(report)) {}

 protected:
  bool Output(std::span<const std::uint8_t> data) override {
    constexpr std::size_t kMaximumStream = 23;
    constexpr std::size_t kMaximumLog = 100;
    if (data.empty() || data[0] == 0 || data[0] > kMaximumStream || data.size() != data[0] + 1U) {
      return false;
    }
    m_sent.push_back(ToHex(Bytes(data.begin() + 1, data.end())));
    if (m_sent.size() > kMaximumLog) {
      m_sent.pop_front();
    }
    ++m_count;
    Report("sent " + m_sent.back());
    return true;
  }
  void ShowState(std::vector<FIELD>& fields) const override {
    fields.push_back({"count", m_count});
    fields.push_back(
        {"sent", std::vector<std::string>(m_sent.begin(), m_sent.end()), FIELD_KIND::kText});
  }

 private:
  std::deque<std::string> m_sent;  // oldest first
  int m_count = 0;
};

}  // namespace

std::unique_ptr<CARD> MakeIr(int address, REPORT report) {
  return std::make_unique<IR_CARD>(address, std::move(report));
}

}  // namespace sim
