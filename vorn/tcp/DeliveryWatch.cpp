#include "vorn/tcp/DeliveryWatch.h"

namespace vorn {

namespace {

constexpr std::chrono::seconds kLimit{30};
constexpr std::chrono::seconds kBetweenLooks{1};

}  // namespace

void DELIVERY_WATCH::Begin(TIME now) {
  m_written = 0;
  m_acknowledged = 0;
  m_latest = now;
  m_nextLook = TIME::max();
}

void DELIVERY_WATCH::Written(std::size_t bytes, TIME now) {
  m_written += bytes;
  if (m_nextLook == TIME::max() && bytes > 0) {
    m_latest = now;
    m_nextLook = now + kBetweenLooks;
  }
}

bool DELIVERY_WATCH::IsGivenUp(std::uint64_t underWay, TIME now) {
  m_nextLook = underWay == 0 ? TIME::max() : now + kBetweenLooks;
  const std::uint64_t acknowledged = m_written - underWay;
  if (underWay == 0 || acknowledged != m_acknowledged) {
    m_acknowledged = acknowledged;
    m_latest = now;
  }
  return now - m_latest >= kLimit;
}

}  // namespace vorn
