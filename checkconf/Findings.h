#pragma once

#include "checkconf/FindingKinds.h"
#include "checkconf/SourceText.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace vorn::checkconf {

/// One thing that was found, ready to be shown.
struct FINDING {
  KIND kind;
  POSITION position;
  std::string text;
  std::string advice;
};

/// Collects what is found. At most kMostFindings are kept: a damaged file may hold any number.
class FINDINGS {
 public:
  static constexpr std::size_t kMostFindings = 200;

  /// `details` fill the "{}" of the kind's text and advice, in order. They are shown as they are:
  /// what comes from outside goes through Shown or Quoted first.
  void Add(KIND kind, POSITION position, std::initializer_list<std::string> details = {});

  /// No more is wanted; what is added now is only counted.
  bool IsFull() const { return m_findings.size() >= kMostFindings; }

  /// All findings, in the order of their positions; those about the file as a whole come last.
  std::vector<FINDING> Take();

 private:
  std::vector<FINDING> m_findings;
  std::size_t m_leftOut = 0;
};

}  // namespace vorn::checkconf
