#include "tests/soak/Machine.h"

#include "tests/soak/FloodLines.h"
#include "tests/soak/IoLines.h"

#include <chrono>
#include <stdexcept>

namespace soak {

namespace {

using std::chrono::milliseconds;

/// While the bus is calm an exchange takes milliseconds, or a second behind the operator's.
constexpr milliseconds kMachineLimit{8'000};

/// Of a flood so many lines are made at a time, and one output.
constexpr int kBatch = 16;
/// The last output of a flood has a value that none of the others has: from here on.
constexpr unsigned int kLastOutputs = 0x80;
/// Until a flood's last output is at its card, and until all that was sent is taken: behind it are
/// some hundred kB of messages, perhaps a link to be made anew, and a busy machine.
constexpr milliseconds kFloodLimit{120'000};
constexpr milliseconds kFloodStep{10};

std::string Hex(unsigned int value) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  return {kHexDigits[value >> 4U & 0xFU], kHexDigits[value & 0xFU]};
}

}  // namespace

void MACHINE::Connect() {
  std::string before;
  m_io.emplace(ConnectTo(m_port, "VORN IO interface is ready\r\n\r", before));
}

void MACHINE::Reset() {
  if (m_io) {
    m_io->Reset();
  }
}

std::string MACHINE::Exchange() {
  if (m_floods) {
    RunFlood();
    return {};
  }
  constexpr unsigned int kValues = 0xFE;  // 00 and FF are what cards start with
  const std::string value = Hex(++m_turn % kValues + 1);
  const std::string output = "a5b1d" + value;
  const std::string input = "a3b0d" + value;
  std::string commands = output + "\r\n";
  if (m_turn % 16 == 0) {
    commands += "a0b4d" + value + "\r\na1b0d" + value + "\r\naElPAp0002tTurn " + value +
                "\r\na9sHS43" + value + "\r\n" + kNonsense + "\r\n";
  }
  const std::uint64_t before = m_monitor.Seen();
  m_io->Send(commands);
  static_cast<void>(m_rack.Command("set 3.0 " + value));  // refused while the card is pulled
  if (!m_rack.WaitForValue("card 5 block 1", value, kMachineLimit)) {
    return output + " at the rack";
  }
  if (!m_io->ReadUntil(input, kMachineLimit).ends_with(input)) {
    return input + " on IO";
  }
  if (!m_monitor.WaitForLine(input, before, kMachineLimit)) {
    return input + " on MON";
  }
  if (!m_monitor.WaitForLine(output, before, kMachineLimit)) {
    return output + " on MON";
  }
  return {};
}

void MACHINE::RunFlood() {
  std::string batch;
  m_isFlooding = true;
  while (m_floods && !IsStopped() && !IsDropped()) {
    if (batch.empty()) {
      batch = NextBatch();
    }
    SendSome(batch);
  }
  m_isFlooding = false;
  // Never a half line.
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!batch.empty()) {
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error("IO does not take what a flood has sent");
    }
    SendSome(batch);
  }
  if (IsStopped()) {
    return;
  }
  if (IsDropped()) {
    LeaveFlood();
    return;
  }
  AwaitLastOutput();
  ++m_floodsOver;
}

std::string MACHINE::NextBatch() {
  std::string batch;
  for (int i = 0; i < kBatch; ++i) {
    batch += FloodLine(++m_lines) + "\r\n";
  }
  return batch + "a5b0d" + Hex(++m_turn % kLastOutputs) + "\r\n";
}

/// Sends what is taken at once, and reads what is there.
void MACHINE::SendSome(std::string& text) {
  const std::size_t taken = m_io->TrySend(text);
  text.erase(0, taken);
  if (!IsStalled()) {
    m_io->Read(kMuch, milliseconds(0));
  }
  if (taken == 0) {
    m_io->WaitUntilWritable(kFloodStep);
  }
}

/// The daemon closes when it has read all that was sent, or has told that it does not.
void MACHINE::LeaveFlood() {
  m_io->CloseSending();
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!m_io->IsEnded()) {
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error("IO is not closed although its client has left");
    }
    m_io->Read(kMuch, kFloodStep);
  }
}

/// The daemon sends what it was told last, whatever was dropped before it. Only where the link is
/// lost a frame may be lost with it.
void MACHINE::AwaitLastOutput() {
  const int lost = Weather().LostLinks();
  const std::string value = Hex(kLastOutputs + ++m_lastOutput % kLastOutputs);
  std::string output = "a5b0d" + value + "\r\n";
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!output.empty() || !m_rack.WaitForValue("card 5 block 0", value, kFloodStep)) {
    if (std::chrono::steady_clock::now() > limit) {
      if (Weather().LostLinks() == lost) {
        throw std::runtime_error("the last output of a flood did not reach its card");
      }
      return;
    }
    SendSome(output);
  }
}

}  // namespace soak
