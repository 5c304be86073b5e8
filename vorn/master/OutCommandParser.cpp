#include "vorn/master/OutCommandParser.h"

#include "vorn/base/Budget.h"
#include "vorn/master/TextParts.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <utility>

namespace vorn {

namespace {

struct LCD_CONTROL {
  const char* text;
  std::uint8_t code;
};
constexpr LCD_CONTROL kLcdControls[] = {
    {"CL", bus::lcd::kClear},       {"LO", bus::lcd::kLightOn},   {"LF", bus::lcd::kLightOff},
    {"CO", bus::lcd::kCursorOn},    {"CF", bus::lcd::kCursorOff}, {"BO", bus::lcd::kBlinkingOn},
    {"BF", bus::lcd::kBlinkingOff},
};

constexpr const char* kLcdTextMark = "PAp";
constexpr const char* kIrStreamMark = "HS";

// Where the parts of a command stand: "aAbBdDD", "aAlCL", "aAlPApXXYYtTEXT", "aAsHSH1H2...".
constexpr std::size_t kAddressAt = 1;
constexpr std::size_t kFormAt = 2;
constexpr std::size_t kBlockAt = 3;
constexpr std::size_t kControlAt = 3;
constexpr std::size_t kBlockDataAt = 4;
constexpr std::size_t kValueAt = 5;
constexpr std::size_t kStreamAt = 5;
constexpr std::size_t kColumnAt = 6;
constexpr std::size_t kRowAt = 8;
constexpr std::size_t kTextAt = 11;

/// One or two hex digits; what is missing counts as 0.
std::uint8_t HexAt(const std::string& command, std::size_t position, std::size_t digits) {
  return Convert_HexStr2Byte(PartOf(command, position, digits));
}

bool HasForm(const std::string& command, char form) {
  return CharacterAt(command, 0) == 'a' && CharacterAt(command, kFormAt) == form;
}

bool Contains(const std::string& command, const char* mark) {
  return command.find(mark) != std::string::npos;
}

bool IsBlockCommand(const std::string& command) {
  return HasForm(command, 'b') && CharacterAt(command, kBlockDataAt) == 'd';
}

bool IsIrStream(const std::string& command) {
  return HasForm(command, 's') && Contains(command, kIrStreamMark);
}

bool IsLcdControl(const std::string& command) {
  return HasForm(command, 'l') && !Contains(command, kLcdTextMark);
}

bool IsLcdText(const std::string& command) {
  return HasForm(command, 'l') && Contains(command, kLcdTextMark);
}

}  // namespace

/// The forms of a command; the first that recognises it takes it.
struct IO_FORMS {
  struct FORM {
    bool (*recognises)(const std::string& command);
    void (OUT_COMMAND_PARSER::*run)(const std::string& command);
  };
  static constexpr FORM kForms[] = {
      {IsBlockCommand, &OUT_COMMAND_PARSER::BlockCommand},
      {IsIrStream, &OUT_COMMAND_PARSER::IrStream},
      {IsLcdControl, &OUT_COMMAND_PARSER::LcdControl},
      {IsLcdText, &OUT_COMMAND_PARSER::LcdText},
  };
};

OUT_COMMAND_PARSER::OUT_COMMAND_PARSER(const std::string& ioInpSeparator,
                                       const std::string& caeOutSeparator, CARD_TABLE& cards,
                                       QUEUE_REQUEST queueRequest, VOQUEUE& caeOutput,
                                       LOGGER& logger)
    : m_inpSeparator(ioInpSeparator),
      m_caeOutSeparator(caeOutSeparator),
      m_cards(cards),
      m_queueRequest(std::move(queueRequest)),
      m_caeOutput(caeOutput),
      m_logger(logger),
      m_operatorBacklog(BytesAt(MARK::kReportsAreNotMade)) {
}

int OUT_COMMAND_PARSER::ParseOutCommand(const QList& message) {
  for (const std::string& command : Split(Convert_QList2String(message))) {
    RunGuarded(command, [this](const std::string& text) { Decode(text); });
  }
  return 1;
}

/// The pieces between the separators, empty ones dropped. Without a separator the text is one
/// piece.
std::vector<std::string> OUT_COMMAND_PARSER::Split(const std::string& text) const {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t found =
        m_inpSeparator.empty() ? std::string::npos : text.find(m_inpSeparator, begin);
    const std::size_t end = std::min(found, text.size());
    if (end > begin) {
      pieces.push_back(text.substr(begin, end - begin));
    }
    begin = end + m_inpSeparator.size();
  }
  return pieces;
}

void OUT_COMMAND_PARSER::RunGuarded(const std::string& command,
                                    const std::function<void(const std::string&)>& decode) {
  try {
    decode(command);
  } catch (int value) {
    std::cout << "Caught an exception -- value is: " << value << std::endl
              << "ka>" << command << "<" << std::endl;
    TellOperator("COE:Parser exception -> " + command);
  }
}

void OUT_COMMAND_PARSER::Decode(const std::string& command) {
  for (const IO_FORMS::FORM& form : IO_FORMS::kForms) {
    if (form.recognises(command)) {
      (this->*form.run)(command);
      return;
    }
  }
  Refuse(command);
}

// --- the forms ----------------------------------------------------------------------------------

/// Stores the value whatever the card is, and sends the card's whole output state. A card that
/// takes no block commands gets an empty body, which the serial worker answers itself and drops.
void OUT_COMMAND_PARSER::BlockCommand(const std::string& command) {
  if (command.size() <= kValueAt) {
    // Cut before its value, perhaps by the end of a read: as 00 it would switch a whole block on.
    Refuse(command);
    return;
  }
  const std::uint8_t address = HexAt(command, kAddressAt, 1);
  const std::uint8_t block = HexAt(command, kBlockAt, 1);
  const std::uint8_t value = HexAt(command, kValueAt, 2);
  const QList data = m_cards.With(address, [&](PERIFCARD& card) {
    card.values[block] = value;
    return QList(card.values.begin(),
                 card.values.begin() + FindCardType(card.typeCode).outputValues);
  });
  if (data.empty()) {
    m_queueRequest(address, {});
  } else {
    SendOutput(address, data);
  }
}

void OUT_COMMAND_PARSER::IrStream(const std::string& command) {
  const std::uint8_t address = HexAt(command, kAddressAt, 1);
  const std::string digits = PartOf(command, kStreamAt, std::string::npos);
  const std::size_t length = digits.size() / 2;  // an odd last digit is ignored
  if (PartOf(command, kControlAt, 2) != kIrStreamMark || length > bus::kLongestIrStream ||
      !IsCard(address, kIrRemote)) {
    Refuse(command);
    return;
  }
  QList data = {static_cast<char>(length)};
  for (std::size_t i = 0; i < length; ++i) {
    data.push_back(static_cast<char>(HexNum2Byte(digits[2 * i], digits[2 * i + 1])));
  }
  SendOutput(address, data);
}

void OUT_COMMAND_PARSER::LcdControl(const std::string& command) {
  const std::uint8_t address = HexAt(command, kAddressAt, 1);
  const std::string text = PartOf(command, kControlAt, 2);
  const auto* const control =
      std::find_if(std::begin(kLcdControls), std::end(kLcdControls),
                   [&](const LCD_CONTROL& row) { return text == row.text; });
  if (control == std::end(kLcdControls) || !IsCard(address, kAlphanumericLcd)) {
    Refuse(command);
    return;
  }
  SendOutput(address, {static_cast<char>(control->code)});
}

void OUT_COMMAND_PARSER::LcdText(const std::string& command) {
  const std::uint8_t address = HexAt(command, kAddressAt, 1);
  if (command.size() < kTextAt || command.size() - kTextAt > bus::kLongestLcdText ||
      !IsCard(address, kAlphanumericLcd)) {
    Refuse(command);
    return;
  }
  QList data = {static_cast<char>(bus::lcd::kText), static_cast<char>(HexAt(command, kColumnAt, 2)),
                static_cast<char>(HexAt(command, kRowAt, 2))};
  data.insert(data.end(), command.begin() + kTextAt, command.end());
  data.push_back('\0');
  SendOutput(address, data);
}

// --- what they share ----------------------------------------------------------------------------

bool OUT_COMMAND_PARSER::IsCard(std::uint8_t address, CARD_CODE type) {
  return m_cards.With(address, [&](const PERIFCARD& card) { return card.typeCode == type; });
}

void OUT_COMMAND_PARSER::SendOutput(std::uint8_t address, const QList& data) {
  m_queueRequest(address, bus::OutputRequest(address, data));
}

void OUT_COMMAND_PARSER::Refuse(const std::string& command) {
  TellOperator("COE:Illegal command -> " + command);
}

void OUT_COMMAND_PARSER::TellOperator(const std::string& text) {
  m_operatorBacklog.Note(m_caeOutput.Bytes());
  if (m_operatorBacklog.HasJustFilled()) {
    m_logger.WriteLog(kErr,
                      "too many messages wait on CAE interface, refused commands are not reported");
  }
  if (m_operatorBacklog.IsFull()) {
    return;
  }
  m_caeOutput.ToQueue(Convert_String2QList(text + m_caeOutSeparator));
  m_caeOutput.ToQueue(Convert_String2QList(">" + m_caeOutSeparator));
}

}  // namespace vorn
