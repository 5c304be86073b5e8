#pragma once

#include "sim/rack/Card.h"

#include <array>
#include <deque>
#include <memory>
#include <random>

/// The eight card types and the one that nobody knows. What each answers to a request is fixed by
/// the bus; what its numbers do at the rack is this simulator's choice, written down in
/// docs/card-bus.md.
namespace sim {

/// 16 lamps in two blocks; a 0 bit lights.
class DIGITAL_OUTPUT_CARD : public CARD {
 public:
  DIGITAL_OUTPUT_CARD(int address, REPORT report);
  int Value(int block) const override;
  /// Lamp 0 to 15 (block 1 begins at 8) is lit.
  bool Lit(int lamp) const;

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void OnReboot() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  std::array<std::uint8_t, 2> m_blocks{0xFF, 0xFF};
};

/// 16 keys in two blocks; a pressed key is a 1 bit.
class DIGITAL_INPUT_CARD : public CARD {
 public:
  DIGITAL_INPUT_CARD(int address, REPORT report);
  int Value(int block) const override;
  RESULT Press(int key) override;
  RESULT Release(int key) override;
  /// A whole block (0 or 1) at once.
  RESULT Set(int block, int value) override;

 protected:
  Bytes Input() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  void Change(int block, std::uint8_t value);
  std::array<std::uint8_t, 2> m_blocks{0, 0};
};

/// Six servos that travel to their target at a settable speed. Target 00 is end position A, FF end
/// position B. Parameters endA, endB; position is where they stand (working) and what a reboot or a
/// recall takes them to (stored).
class SERVO_CARD : public CARD {
 public:
  static constexpr int kServos = 6;
  /// Steps of the 256 per second: end to end in half a second, as a hobby servo does.
  static constexpr int kDefaultSpeed = 512;

  SERVO_CARD(int address, REPORT report);
  void Advance(TIME now) override;
  bool Moving() const override;
  /// The target of a servo.
  int Value(int servo) const override;
  /// Where it stands on its way, 0 to 255.
  double Position(int servo) const;
  /// What the servo's shaft is driven to, between end positions A and B, 0 to 255.
  double Pulse(int servo) const;
  /// Steps per second, 0: at once.
  RESULT SetSpeed(int unitsPerSecond) override;
  int Speed() const { return m_speed; }

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void BeforeStore() override;
  void OnRecall() override;
  void OnReboot() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  void MoveTo(int servo, std::uint8_t target);
  struct SERVO {
    std::uint8_t target = 0x80;
    double position = 0x80;
  };
  std::array<SERVO, kServos> m_servos;
  int m_speed = kDefaultSpeed;
  std::optional<TIME> m_now;  // of the last Advance
};

/// Three motors. Data bytes 0 to 2 are speeds, byte 3 is the control byte. With a silent range of 1
/// or more a speed is signed (00 stands, 01 to 7F forward, 80 to FF backward) and speeds inside the
/// range do not turn the motor. With a silent range of 0 the channel is in manual mode: the speed
/// is unsigned and bits 2p and 2p + 1 of the control byte turn motor p forward and backward.
class MOTOR_CARD : public CARD {
 public:
  static constexpr int kMotors = 3;

  MOTOR_CARD(int address, REPORT report);
  int Value(int block) const override;
  /// Speed in percent of full speed, negative backward.
  int Percent(int motor) const;

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void OnParameter(const PARAMETER& row, int channel) override;
  void OnReboot() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  void ReportTurning();
  std::array<std::uint8_t, 4> m_values{};
  std::array<int, kMotors> m_reported{};  // percent, so that only changes are reported
};

/// Six pots, 0 to 255, with noise and ramps. A channel whose mask bit is 0 answers 0.
class ANALOGUE_CARD : public CARD {
 public:
  static constexpr int kPots = 6;

  ANALOGUE_CARD(int address, REPORT report);
  void Advance(TIME now) override;
  bool Moving() const override;
  /// The pot's own value, without noise and mask.
  int Value(int pot) const override;
  /// Stops a ramp of that pot.
  RESULT Set(int pot, int value) override;
  RESULT Ramp(int pot, int target, std::chrono::milliseconds time) override;
  /// Each answer differs from the pot's value by at most so much, evenly spread; 0: none.
  RESULT SetNoise(int pot, int amplitude) override;

 protected:
  Bytes Input() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  struct POT {
    double value = 0;
    int noise = 0;
    bool ramping = false;
    double from = 0;
    double to = 0;
    TIME begin{};
    std::chrono::milliseconds time{};
  };
  std::array<POT, kPots> m_pots;
  std::mt19937 m_random;
  std::optional<TIME> m_now;  // of the last Advance
};

/// A key matrix and a rotary encoder that share one input byte: 00 no key, 01 to 7F the code of the
/// key that is down, 80 to FF the encoder's position after a turn. Each poll takes the next of the
/// things that happened, so a fast finger is not lost; with nothing new it repeats the last.
class KEYS_CARD : public CARD {
 public:
  static constexpr std::size_t kMaximumWaiting = 256;

  KEYS_CARD(int address, REPORT report);
  int Value(int block) const override;
  RESULT Press(int key) override;
  RESULT Release(int key) override;
  /// Positive clockwise; one poll answer for each step.
  RESULT Turn(int steps) override;
  /// The code of the key that is down, 0 for none.
  int Down() const { return m_down; }
  /// 0 to 127.
  int Encoder() const { return m_encoder; }

 protected:
  Bytes Input() override;
  void OnReboot() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  bool Add(std::uint8_t value);
  std::deque<std::uint8_t> m_waiting;
  std::uint8_t m_last = 0;
  int m_down = 0;
  int m_encoder = 0;
};

/// A character display.
class LCD_CARD : public CARD {
 public:
  static constexpr int kDefaultColumns = 20;
  static constexpr int kDefaultRows = 4;
  static constexpr int kMaximumColumns = 40;
  static constexpr int kMaximumRows = 4;

  LCD_CARD(int address, REPORT report);
  RESULT Resize(int columns, int rows);
  int Columns() const { return m_columns; }
  /// The rows as shown, each of the full width; a byte that is no printable ASCII shows as '?'.
  std::vector<std::string> Rows() const;
  bool Light() const { return m_light; }
  bool Cursor() const { return m_cursor; }
  bool Blink() const { return m_blink; }
  int CursorColumn() const { return m_column; }
  int CursorRow() const { return m_row; }

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void OnReboot() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  bool Text(std::span<const std::uint8_t> data);
  void Perform(LCD_EFFECT effect);
  void Clear();
  void Boot();
  int m_columns = kDefaultColumns;
  int m_rows = kDefaultRows;
  std::vector<Bytes> m_cells;
  bool m_selfTestShown = false;
  bool m_light = false;
  bool m_cursor = false;
  bool m_blink = false;
  int m_column = 0;
  int m_row = 0;
};

/// Sends streams; keeps the last of them.
class IR_CARD : public CARD {
 public:
  static constexpr std::size_t kMaximumLog = 100;
  static constexpr std::size_t kMaximumStream = 23;

  IR_CARD(int address, REPORT report);
  /// Oldest first, at most kMaximumLog.
  const std::deque<Bytes>& Sent() const { return m_sent; }

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  std::deque<Bytes> m_sent;
  int m_count = 0;
};

/// Shows its type code in the identification and refuses everything else.
class UNKNOWN_CARD : public CARD {
 public:
  UNKNOWN_CARD(std::uint8_t typeCode, int address, REPORT report);

 protected:
  void ShowState(std::vector<FIELD>& fields) const override;
};

/// A card of that type code, booted; never null.
std::unique_ptr<CARD> MakeCard(std::uint8_t typeCode, int address, CARD::REPORT report);

}  // namespace sim
