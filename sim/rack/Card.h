#pragma once

#include "sim/rack/Bytes.h"
#include "sim/rack/Protocol.h"
#include "sim/rack/Result.h"
#include "sim/rack/Time.h"

#include <functional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace sim {

/// One thing to show of a card: its name and its value. Bytes are what people of this bus write in
/// hexadecimal; an int is a plain number.
struct FIELD {
  std::string name;
  std::variant<int, bool, std::uint8_t, std::string, Bytes, std::vector<int>, std::vector<double>,
               std::vector<std::string>>
      value;
};

/// One simulated card: answers the requests of the bus for its address and can be operated by a
/// person. Derived classes add what their type does; parameters and actions are handled here, by
/// the tables of Protocol.h. Owned by RACK, which calls it under its lock from whatever thread; a
/// card has no lock and no thread of its own.
class CARD {
 public:
  /// Takes one line for each thing that happens at the card, without "card A " in front.
  using REPORT = std::function<void(const std::string& line)>;

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

  /// The value of block or channel b as the bus knows it: the byte last sent to an output, the byte
  /// that an input would answer. -1 where the card has no such block.
  virtual int Value(int /*block*/) const { return -1; }

  /// What an operator may do at a card; each answers an error where the type has nothing like it or
  /// the number is out of range.
  virtual RESULT Press(int key);
  virtual RESULT Release(int key);
  virtual RESULT Turn(int steps);
  virtual RESULT Set(int channel, int value);
  virtual RESULT Ramp(int channel, int target, std::chrono::milliseconds time);
  virtual RESULT SetNoise(int channel, int amplitude);
  virtual RESULT SetSpeed(int unitsPerSecond);

  /// A parameter's working and stored value; -1 when the type has no such parameter or channel.
  int Parameter(const std::string& name, int channel = 0) const;
  int StoredParameter(const std::string& name, int channel = 0) const;
  /// Sets both, as a card that came with these values.
  RESULT PresetParameter(const std::string& name, int channel, int value);

  /// All there is to see, in a fixed order, parameters last.
  std::vector<FIELD> Show() const;

 protected:
  /// What the type does; each false means a refusal.
  virtual bool Output(std::span<const std::uint8_t> /*data*/) { return false; }
  virtual Bytes Input() { return {}; }
  virtual void OnParameter(const PARAMETER& /*row*/, int /*channel*/) {}
  virtual void BeforeStore() {}
  virtual void OnRecall() {}
  virtual void OnReboot() {}
  virtual void ShowState(std::vector<FIELD>& fields) const = 0;

  void Report(const std::string& line) const { m_report(line); }
  RESULT HasNo(const char* what) const;
  RESULT BadNumber(const char* what, int number, int limit) const;
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

/// One hexadecimal digit, as addresses are written.
std::string AddressText(int address);

}  // namespace sim
