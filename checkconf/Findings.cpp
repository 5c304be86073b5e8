#include "checkconf/Findings.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace vorn::checkconf {

namespace {

constexpr std::string_view kPlace = "{}";

/// Fills the places of `text` with the details from `next` on.
std::string Fill(std::string_view text, std::initializer_list<std::string>::const_iterator& next,
                 std::initializer_list<std::string>::const_iterator end) {
  std::string filled;
  for (;;) {
    const std::size_t place = text.find(kPlace);
    filled += text.substr(0, place);
    if (place == std::string_view::npos) {
      return filled;
    }
    if (next != end) {
      filled += *next++;
    }
    text.remove_prefix(place + kPlace.size());
  }
}

/// Sorts by line and column; the file as a whole behind everything.
std::pair<std::size_t, std::size_t> Order(const FINDING& finding) {
  const POSITION& position = finding.position;
  return {position.line == 0 ? std::numeric_limits<std::size_t>::max() : position.line,
          position.column};
}

}  // namespace

void FINDINGS::Add(KIND kind, POSITION position, std::initializer_list<std::string> details) {
  if (IsFull()) {
    ++m_leftOut;
    return;
  }
  const FINDING_KIND& row = FindKind(kind);
  const auto* next = details.begin();
  std::string text = Fill(row.text, next, details.end());
  std::string advice = Fill(row.advice, next, details.end());
  m_findings.push_back({kind, position, std::move(text), std::move(advice)});
}

std::vector<FINDING> FINDINGS::Take() {
  std::vector<FINDING> findings = std::move(m_findings);
  m_findings.clear();
  std::stable_sort(findings.begin(), findings.end(),
                   [](const FINDING& a, const FINDING& b) { return Order(a) < Order(b); });
  if (m_leftOut > 0) {
    const std::size_t leftOut = std::exchange(m_leftOut, 0);
    Add(KIND::kTooManyFindings, {}, {std::to_string(leftOut)});
    findings.push_back(std::exchange(m_findings, {}).front());
  }
  return findings;
}

}  // namespace vorn::checkconf
