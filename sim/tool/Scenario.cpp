#include "sim/tool/Scenario.h"

#include "sim/tool/Arguments.h"
#include "sim/tool/Commands.h"

#include <algorithm>
#include <sstream>

namespace sim {

namespace {

/// Takes the first word from the front of a line.
std::string TakeWord(std::string& line) {
  const std::size_t begin = std::min(line.find_first_not_of(" \t\r"), line.size());
  const std::size_t end = std::min(line.find_first_of(" \t\r", begin), line.size());
  std::string word = line.substr(begin, end - begin);
  line.erase(0, std::min(line.find_first_not_of(" \t\r", end), line.size()));
  return word;
}

}  // namespace

RESULT SCENARIO::Parse(const std::string& text, const std::string& name) {
  std::istringstream lines(text);
  std::string line;
  std::string errors;
  std::chrono::milliseconds last{0};
  for (int number = 1; std::getline(lines, line); ++number) {
    const auto refuse = [&](const std::string& why) {
      errors.append(errors.empty() ? "" : "\n").append(name).append(":");
      errors.append(std::to_string(number)).append(": ").append(why);
    };
    const std::string word = TakeWord(line);
    if (word.empty() || word[0] == '#') {
      continue;
    }
    if (word != "at" && word != "after") {
      refuse("expected at SECONDS or after SECONDS, found '" + word + "'");
      continue;
    }
    try {
      const auto seconds = ReadSeconds(TakeWord(line));
      last = word == "at" ? seconds : last + seconds;
    } catch (const ARGUMENT_ERROR& error) {
      refuse(error.what());
      continue;
    }
    if (line.empty()) {
      refuse("expected a command");
    } else if (const RESULT checked = Check(line); !checked) {
      refuse(checked.text);
    }
    m_steps.push_back({last, line});
  }
  if (!errors.empty()) {
    m_steps.clear();
    return RESULT::Error(errors);
  }
  std::stable_sort(m_steps.begin(), m_steps.end(),
                   [](const STEP& a, const STEP& b) { return a.when < b.when; });
  return RESULT::Good();
}

std::optional<std::chrono::milliseconds> SCENARIO::Next() const {
  if (m_next == m_steps.size()) {
    return std::nullopt;
  }
  return m_steps[m_next].when;
}

std::vector<SCENARIO::STEP> SCENARIO::Take(std::chrono::milliseconds sinceStart) {
  std::vector<STEP> due;
  while (m_next < m_steps.size() && m_steps[m_next].when <= sinceStart) {
    due.push_back(m_steps[m_next++]);
  }
  return due;
}

}  // namespace sim
