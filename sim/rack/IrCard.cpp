#include "sim/rack/Cards.h"

namespace sim {

IR_CARD::IR_CARD(int address, REPORT report) : CARD(type::kIr, address, std::move(report)) {
}

bool IR_CARD::Output(std::span<const std::uint8_t> data) {
  if (data.empty() || data[0] == 0 || data[0] > kMaximumStream || data.size() != data[0] + 1U)
    return false;
  m_sent.emplace_back(data.begin() + 1, data.end());
  if (m_sent.size() > kMaximumLog)
    m_sent.pop_front();
  ++m_count;
  Report("sent " + ToHex(m_sent.back()));
  return true;
}

void IR_CARD::ShowState(std::vector<FIELD>& fields) const {
  std::vector<std::string> streams;
  streams.reserve(m_sent.size());
  for (const Bytes& stream : m_sent)
    streams.push_back(ToHex(stream));
  fields.push_back({"count", m_count});
  fields.push_back({"sent", streams});
}

}  // namespace sim
