#include "checkconf/ValueChecks.h"

#include "checkconf/Quoting.h"
#include "vorn/base/Values.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

namespace vorn::checkconf {

namespace {

constexpr std::int32_t kSlowest = 1;    // percent
constexpr std::int32_t kFastest = 100;  // percent
/// From here on nothing is written.
constexpr std::int32_t kFirstSilentLevel = 2;

constexpr const char* kWordsOfYes[] = {"true", "t", "yes", "y", "on", "1", "enable", "enabled"};
constexpr const char* kWordsOfNo[] = {"FALSE", "False", "false"};

/// Without blanks around it, in lower case.
std::string Simplified(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) {
    return {};
  }
  std::string simple = text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
  std::transform(simple.begin(), simple.end(), simple.begin(), [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return simple;
}

template <std::size_t N>
bool IsOneOf(const std::string& text, const char* const (&words)[N]) {
  return std::any_of(std::begin(words), std::end(words),
                     [&](const char* word) { return text == word; });
}

bool IsPlainNumber(const std::string& text) {
  const std::size_t digits = text.starts_with('-') ? 1 : 0;
  return text.size() > digits &&
         std::all_of(text.begin() + static_cast<std::ptrdiff_t>(digits), text.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

void CheckLogFile(const ATTRIBUTE& attribute, CHECKING& checking) {
  if (attribute.value.empty()) {
    checking.Add(KIND::kNoLogFile, attribute.offset);
  } else if (attribute.value.front() != '/') {
    checking.Add(KIND::kRelativeLogFile, attribute.offset, {Quoted(attribute.value)});
  }
}

void CheckLogLevel(const ATTRIBUTE& attribute, CHECKING& checking) {
  const std::int32_t level = ReadNumber(attribute, checking);
  if (level >= kFirstSilentLevel) {
    checking.Add(KIND::kBadLogLevel, attribute.offset, {ITOA(level)});
  } else if (level < 0) {
    checking.Add(KIND::kNegativeLogLevel, attribute.offset, {ITOA(level)});
  }
}

void CheckSpeed(const ATTRIBUTE& attribute, CHECKING& checking) {
  const std::int32_t percent = ReadNumber(attribute, checking);
  if (percent < kSlowest || percent > kFastest) {
    checking.Add(KIND::kBadSpeed, attribute.offset,
                 {ITOA(percent), ITOA(std::max(0, SpeedToDelayUs(percent)))});
  }
}

void CheckSwitch(const ATTRIBUTE& attribute, CHECKING& checking) {
  if (ATOB(attribute.value) || IsOneOf(attribute.value, kWordsOfNo)) {
    return;
  }
  const bool looksTrue = IsOneOf(Simplified(attribute.value), kWordsOfYes);
  checking.Add(looksTrue ? KIND::kLooksTrue : KIND::kUnknownWord, attribute.offset,
               {Quoted(attribute.value)});
}

struct VALUE_CHECK {
  const char* element;
  const char* attribute;
  void (*check)(const ATTRIBUTE& attribute, CHECKING& checking);
};

constexpr VALUE_CHECK kValueChecks[] = {
    {"Debuglog", "File", CheckLogFile},      {"Debuglog", "Loglevel", CheckLogLevel},
    {"Speed", "Percent", CheckSpeed},        {"InitPollState", "Action", CheckSwitch},
    {"AutoDiscover", "Action", CheckSwitch},
};

const VALUE_CHECK* FindCheck(std::string_view element, std::string_view attribute) {
  const auto* const found = std::find_if(
      std::begin(kValueChecks), std::end(kValueChecks),
      [&](const VALUE_CHECK& row) { return element == row.element && attribute == row.attribute; });
  return found == std::end(kValueChecks) ? nullptr : found;
}

}  // namespace

std::int32_t ReadNumber(const ATTRIBUTE& attribute, CHECKING& checking) {
  const std::int32_t number = ATOL(attribute.value);
  if (!IsPlainNumber(attribute.value)) {
    checking.Add(KIND::kNotANumber, attribute.offset, {Quoted(attribute.value), ITOA(number)});
  }
  return number;
}

void CheckSettingValue(const std::string& element, const ATTRIBUTE& attribute, CHECKING& checking) {
  const VALUE_CHECK* const row = FindCheck(element, attribute.name);
  if (row != nullptr) {
    row->check(attribute, checking);
  }
}

bool HasValueCheck(const std::string& element, const std::string& attribute) {
  return FindCheck(element, attribute) != nullptr;
}

}  // namespace vorn::checkconf
