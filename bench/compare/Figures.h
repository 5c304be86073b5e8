#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace bench {

/// What was measured, at which place, of whom.
struct FIGURE {
  std::string placement;
  std::string metric;
  int speed;  // percent; 0: of one that has no speed, at any
  int cards;  // polled; 0: none

  bool operator<(const FIGURE& other) const {
    return std::tie(placement, metric, cards, speed) <
           std::tie(other.placement, other.metric, other.cards, other.speed);
  }
};

/// All that was measured, by figure, subject and round.
class FIGURES {
 public:
  void Add(const FIGURE& figure, const std::string& subject, int round, double value);

  /// Of all rounds; NaN where there is none. Of a subject without a speed at any speed the same.
  double Median(const FIGURE& figure, const std::string& subject) const;
  /// Of the ratios of the two in each round.
  double MedianRatio(const FIGURE& figure, const std::string& subject,
                     const std::string& other) const;

  /// Each round's: "round placement subject metric speed cards value", separated by tabs.
  void WriteRounds(const std::string& path) const;
  /// The medians: "placement metric speed cards floor stub vorn vorn/floor vorn/stub", separated by
  /// tabs.
  void WriteMedians(const std::string& path) const;

 private:
  using ROUNDS = std::map<int, double>;
  const ROUNDS& Find(const FIGURE& figure, const std::string& subject) const;

  std::map<FIGURE, std::map<std::string, ROUNDS>> m_values;
};

/// Prints the table of one placement, with the limits; how many of these were missed.
int PrintTable(const FIGURES& figures, const std::string& placement);

}  // namespace bench
