#include "sim/rack/Card.h"

#include <algorithm>

namespace sim {

namespace {

/// Bodies: position of the code, of the value, of the first data byte.
constexpr std::size_t kCodeAt = 3;
constexpr std::size_t kValueAt = 4;
constexpr std::size_t kDataAt = 3;

/// The row's channel that a request code means; -1 for none.
int ChannelOf(const PARAMETER& row, std::uint8_t firstCode, std::uint8_t code) {
  if (firstCode == 0 || code < firstCode || code >= firstCode + row.channels) {
    return -1;
  }
  return code - firstCode;
}

}  // namespace

std::string AddressText(int address) {
  return ToHex(static_cast<std::uint8_t>(address)).substr(1);
}

std::unique_ptr<CARD> MakeCard(std::uint8_t typeCode, int address, REPORT report) {
  const CARD_TYPE* type = FindCardType(typeCode);
  return type != nullptr ? type->make(address, std::move(report))
                         : std::make_unique<CARD>(typeCode, address, std::move(report));
}

CARD::CARD(std::uint8_t typeCode, int address, REPORT report)
    : m_typeCode(typeCode),
      m_type(FindCardType(typeCode)),
      m_address(address),
      m_report(std::move(report)),
      m_name(m_type != nullptr ? m_type->name : "unknown card") {
  for (const PARAMETER& row : kParameters) {
    if (row.type == typeCode) {
      const std::vector<std::uint8_t> start(static_cast<std::size_t>(row.channels), row.start);
      m_settings.push_back({&row, start, start});
    }
  }
}

std::string CARD::Keyword() const {
  return m_type != nullptr ? m_type->keyword : "type " + std::to_string(m_typeCode);
}

Bytes CARD::Answer(const Bytes& request) {
  switch (request.at(0)) {
    case request::kOutput:
      return AnswerOutput(request);
    case request::kPoll:
      return AnswerPoll(request);
    case request::kParameter:
      return AnswerParameter(request);
    default:
      return {error::kFormat};
  }
}

Bytes CARD::AnswerOutput(const Bytes& request) {
  if (request.size() < kDataAt) {
    return {error::kFormat};
  }
  const std::size_t count = request[2];
  if (request.size() < kDataAt + count) {
    return {error::kFormat};
  }
  const bool isOfThatLength =
      m_type != nullptr &&
      (m_type->outputs == 0 || count == static_cast<std::size_t>(m_type->outputs));
  if (!isOfThatLength || !Output(std::span(request).subspan(kDataAt, count))) {
    return Refuse();
  }
  return {reply::kDone, static_cast<std::uint8_t>(m_address)};
}

/// Bytes after the count are ignored: a daemon that identified the cards twice appends its poll
/// frame to itself.
Bytes CARD::AnswerPoll(const Bytes& request) {
  if (request.size() < 3) {
    return {error::kFormat};
  }
  if (m_type == nullptr || m_type->inputs == 0 || request[2] != m_type->inputs) {
    return Refuse();
  }
  Bytes answer{reply::kInput, static_cast<std::uint8_t>(m_address)};
  const Bytes input = Input();
  answer.insert(answer.end(), input.begin(), input.end());
  return answer;
}

Bytes CARD::AnswerParameter(const Bytes& request) {
  if (request.size() <= kCodeAt) {
    return {error::kFormat};
  }
  switch (request[2]) {
    case request::kWrite:
      return WriteParameter(request);
    case request::kRead:
      return ReadParameter(request);
    default:
      return Refuse();
  }
}

Bytes CARD::WriteParameter(const Bytes& request) {
  const std::uint8_t code = request[kCodeAt];
  for (const ACTION& action : kActions) {
    if ((action.type == 0 || action.type == m_typeCode) && action.code == code) {
      return Act(action) ? Query(code, 0) : Refuse();
    }
  }
  for (SETTING& setting : m_settings) {
    const int channel = ChannelOf(*setting.row, setting.row->writeCode, code);
    if (channel < 0) {
      continue;
    }
    if (request.size() <= kValueAt) {
      return {error::kFormat};
    }
    const std::uint8_t value = request[kValueAt];
    if (value > setting.row->maximum) {
      return Refuse();
    }
    const auto index = static_cast<std::size_t>(channel);
    setting.working[index] = value;
    if (setting.row->keptAtOnce) {
      setting.stored[index] = value;
    }
    Report(setting.row->name + (setting.row->channels > 1 ? std::to_string(channel) : "") + " = " +
           ToHex(value));
    OnParameter(*setting.row, channel);
    return Query(code, value);
  }
  return Refuse();
}

Bytes CARD::ReadParameter(const Bytes& request) {
  const std::uint8_t code = request[kCodeAt];
  for (const SETTING& setting : m_settings) {
    const int channel = ChannelOf(*setting.row, setting.row->readCode, code);
    if (channel >= 0) {
      return Query(code, setting.working[static_cast<std::size_t>(channel)]);
    }
  }
  return Refuse();
}

bool CARD::Act(const ACTION& action) {
  switch (action.kind) {
    case ACTION_KIND::kReboot:
      Reboot();
      return true;
    case ACTION_KIND::kStore:
      Store();
      break;
    case ACTION_KIND::kRecall:
      OnRecall();
      break;
  }
  Report(action.event);
  return true;
}

void CARD::Store() {
  BeforeStore();
  for (SETTING& setting : m_settings) {
    setting.stored = setting.working;
  }
}

void CARD::Reboot() {
  for (SETTING& setting : m_settings) {
    setting.working = setting.stored;
  }
  Report("rebooted");
  OnReboot();
}

Bytes CARD::Refuse() const {
  return {error::kRefused, static_cast<std::uint8_t>(m_address)};
}

Bytes CARD::Query(std::uint8_t code, std::uint8_t value) const {
  return {reply::kQuery, static_cast<std::uint8_t>(m_address), code, value};
}

CARD::SETTING* CARD::Find(const std::string& name) {
  const auto found =
      std::find_if(m_settings.begin(), m_settings.end(),
                   [&](const SETTING& setting) { return setting.row->name == name; });
  return found == m_settings.end() ? nullptr : &*found;
}

const CARD::SETTING* CARD::Find(const std::string& name) const {
  return const_cast<CARD*>(this)->Find(name);
}

int CARD::Parameter(const char* name, int channel) const {
  return Find(name)->working.at(static_cast<std::size_t>(channel));
}

int CARD::StoredParameter(const char* name, int channel) const {
  return Find(name)->stored.at(static_cast<std::size_t>(channel));
}

std::uint8_t& CARD::Working(const char* name, int channel) {
  return Find(name)->working.at(static_cast<std::size_t>(channel));
}

RESULT CARD::PresetParameter(const std::string& name, int channel, int value) {
  SETTING* setting = Find(name);
  if (setting == nullptr) {
    std::string known;
    for (const SETTING& each : m_settings) {
      known += (known.empty() ? "" : ", ") + std::string(each.row->name);
    }
    return RESULT::Error("a " + Keyword() + " card has no parameter '" + name + "'" +
                         (known.empty() ? "" : "; it has " + known));
  }
  if (channel < 0 || channel >= setting->row->channels) {
    return BadNumber("channel", channel, setting->row->channels - 1);
  }
  if (value < 0 || value > setting->row->maximum) {
    return RESULT::Error(name + " is 00 to " + ToHex(setting->row->maximum));
  }
  const auto index = static_cast<std::size_t>(channel);
  setting->working[index] = setting->stored[index] = static_cast<std::uint8_t>(value);
  return RESULT::Good();
}

std::vector<FIELD> CARD::Show() const {
  std::vector<FIELD> fields{
      {"address", AddressText(m_address)}, {"type", Keyword()}, {"name", m_name}};
  ShowState(fields);
  for (const SETTING& setting : m_settings) {
    fields.push_back({setting.row->name, setting.working});
    if (!setting.row->keptAtOnce) {
      fields.push_back({std::string("stored ") + setting.row->name, setting.stored});
    }
  }
  return fields;
}

RESULT CARD::HasNo(const char* what) const {
  return RESULT::Error("card " + AddressText(m_address) + " (" + Keyword() + ") has no " + what);
}

RESULT CARD::BadNumber(const char* what, int number, int limit) const {
  return RESULT::Error("card " + AddressText(m_address) + " has no " + what + " " +
                       std::to_string(number) + "; 0 to " + std::to_string(limit) + " are there");
}

RESULT CARD::Press(int) {
  return HasNo("keys");
}
RESULT CARD::Release(int) {
  return HasNo("keys");
}
RESULT CARD::Turn(int) {
  return HasNo("encoder");
}
RESULT CARD::Set(int, int) {
  return HasNo("inputs to set");
}
RESULT CARD::Ramp(int, int, std::chrono::milliseconds) {
  return HasNo("pots");
}
RESULT CARD::SetNoise(int, int) {
  return HasNo("pots");
}
RESULT CARD::SetSpeed(int) {
  return HasNo("servos");
}
RESULT CARD::Resize(int, int) {
  return RESULT::Error("only an lcd card has a Display");
}

}  // namespace sim
