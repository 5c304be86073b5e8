#pragma once

#include "sim/rack/Bytes.h"
#include "sim/rack/Protocol.h"
#include "sim/rack/Result.h"
#include "sim/rack/Time.h"

#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace sim {

/// How a field stands in a picture of the card.
enum class FIELD_KIND {
  kDetail,  // not at all: only in words
  kNumber,  // name and value
  kLamp,    // on or off; of a list of numbers, those lamps of all that are on
  kBar,     // for each channel how far it is up from the least value
  kMark,    // for each channel where it stands between the least and the most
  kText,    // name and value; of a list the last
  kScreen,  // rows of characters in a frame
};

/// One thing to show of a card: its name and its value. Bytes are what people of this bus write in
/// hexadecimal; an int is a plain number.
struct FIELD {
  using VALUE = std::variant<int, bool, std::uint8_t, std::string, Bytes, std::vector<int>,
                             std::vector<double>, std::vector<std::string>>;
  std::string name;
  VALUE value;
  FIELD_KIND kind = FIELD_KIND::kDetail;
  std::string caption{};              // of a list of lamps
  int lamps = 0;                      // how many there are
  std::vector<std::string> labels{};  // of bars and marks, behind each
  double least = 0;
  double most = 0xFF;
};

/// One simulated card: answers the requests of the bus for its address and can be operated by a
/// person. Derived classes, each in its own source, add what their type does; parameters and
/// actions are handled here, by the tables of Protocol.h. Alone it is a card of a type that nobody
/// knows: it stands in the identification and refuses everything. What the numbers of a type do at
/// the rack is this simulator's choice, written down in docs/simulator.md. Owned by RACK, which
/// calls it under its lock from whatever thread; a card has no lock and no thread of its own.
class CARD {
 public:
  CARD(std::uint8_t typeCode, int address, REPORT report);
  virtual ~CARD() = default;
  CARD(const CARD&) = delete;
  CARD& operator=(const CARD&) = delete;

  std::uint8_t TypeCode() const { return m_typeCode; }
  int Address() const { return m_address; }
  /// The row of the card's type; null for a card of a type that nobody knows.
  const CARD_TYPE* Type() const { return m_type; }
  /// "servo", or "type 42".
  std::string Keyword() const;
  /// What the owner calls it; the type's name until somebody named it.
  const std::string& Name() const { return m_name; }
  void Rename(std::string name) { m_name = std::move(name); }

  /// The reply body to a request body whose second byte is this card's address.
  Bytes Answer(const Bytes& request);

  /// As if its supply had been switched off and on: stored parameters become the working ones.
  void Reboot();

  /// Lets everything that moves by itself arrive where it is at that time.
  virtual void Advance(TIME /*now*/) {}
  /// Something moves by itself just now.
  virtual bool Moving() const { return false; }

  /// What an operator may do at a card; each answers an error where the type has nothing like it or
  /// the number is out of range.
  virtual RESULT Press(int key);
  virtual RESULT Release(int key);
  virtual RESULT Turn(int steps);
  virtual RESULT Set(int channel, int value);
  virtual RESULT Ramp(int channel, int target, std::chrono::milliseconds time);
  virtual RESULT SetNoise(int channel, int amplitude);
  virtual RESULT SetSpeed(int unitsPerSecond);
  virtual RESULT Resize(int columns, int rows);
  /// Its keys are named by a code, which like all bytes is hexadecimal, and not counted.
  virtual bool NamesKeysByCode() const { return false; }

  /// Sets a parameter's working and stored value, as a card that came with these values.
  RESULT PresetParameter(const std::string& name, int channel, int value);

  /// All there is to see, in a fixed order, parameters last.
  std::vector<FIELD> Show() const;

 protected:
  /// What the type does; false means a refusal. The data has the length that the type's row names.
  virtual bool Output(std::span<const std::uint8_t> /*data*/) { return false; }
  virtual Bytes Input() { return {}; }
  virtual void OnParameter(const PARAMETER& /*row*/, int /*channel*/) {}
  virtual void BeforeStore() {}
  virtual void OnRecall() {}
  virtual void OnReboot() {}
  virtual void ShowState(std::vector<FIELD>& /*fields*/) const {}

  void Report(const std::string& line) const { m_report(line); }
  RESULT HasNo(const char* what) const;
  RESULT BadNumber(const char* what, int number, int limit) const;
  /// Values of a parameter and channel that the type's rows have.
  int Parameter(const char* name, int channel = 0) const;
  int StoredParameter(const char* name, int channel = 0) const;
  std::uint8_t& Working(const char* name, int channel);

 private:
  struct SETTING {
    const PARAMETER* row;
    std::vector<std::uint8_t> working;
    std::vector<std::uint8_t> stored;
  };

  SETTING* Find(const std::string& name);
  const SETTING* Find(const std::string& name) const;
  Bytes AnswerOutput(const Bytes& request);
  Bytes AnswerPoll(const Bytes& request);
  Bytes AnswerParameter(const Bytes& request);
  Bytes WriteParameter(const Bytes& request);
  Bytes ReadParameter(const Bytes& request);
  bool Act(const ACTION& action);
  void Store();
  Bytes Refuse() const;
  Bytes Query(std::uint8_t code, std::uint8_t value) const;

  const std::uint8_t m_typeCode;
  const CARD_TYPE* const m_type;
  const int m_address;
  const REPORT m_report;
  std::string m_name;
  std::vector<SETTING> m_settings;
};

/// A card of that type code, booted; never null.
std::unique_ptr<CARD> MakeCard(std::uint8_t typeCode, int address, REPORT report);

/// One hexadecimal digit, as addresses are written.
std::string AddressText(int address);

}  // namespace sim
