#include "tests/system/LoadFixture.h"

bool LOAD_FIXTURE::SendOneByOne(TCP_CLIENT& client, const std::vector<std::string>& messages) {
  bool isRead = true;
  for (const std::string& message : messages) {
    client.Send(message);
    isRead = isRead && support::WaitUntil([&] { return client.IsAllRead(); });
  }
  return isRead;
}

void LOAD_FIXTURE::ExpectOutputs(const COUNTED_CARD& card, int count) {
  support::WaitUntil(
      [&] { return bus.CountOutputs(card.Address()) >= static_cast<std::size_t>(count); });
  int number = 0;
  for (const sim::Bytes& output : bus.Outputs(card.Address())) {
    ASSERT_EQ(sim::ToHex(output), sim::ToHex(card.Frame(number))) << "of command " << number;
    ++number;
  }
  EXPECT_EQ(number, count);
}

void LOAD_FIXTURE::ExpectOutputsAndEnd(const COUNTED_CARD& card, int count) {
  ASSERT_TRUE(support::WaitUntil(
      [&] { return bus.LastOutput(card.Address()) == card.EndFrame(count); }, 2 * kLoadLimit));
  std::vector<sim::Bytes> outputs = bus.Outputs(card.Address());
  outputs.pop_back();
  const bool isLossTold = CountLines(kLinkIsLost) > 0 && CountLines(kOldestAreLost) > 0;
  int next = 0;
  for (const sim::Bytes& output : outputs) {
    const auto number = card.NumberOf(output);
    ASSERT_TRUE(number) << sim::ToHex(output) << " before number " << next;
    ASSERT_TRUE(isLossTold || *number == next % card.Period()) << *number << ' ' << next;
    next += (*number - next % card.Period() + card.Period()) % card.Period() + 1;
  }
  EXPECT_TRUE(next == count || (isLossTold && (count - next) % card.Period() == 0)) << next;
}

void LOAD_FIXTURE::ExpectAllInputs(const std::vector<std::string>& lines) const {
  const INPUT_GAPS found = FindInputGaps(lines);
  EXPECT_FALSE(found.torn) << *found.torn;
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), InputLine(1));
  EXPECT_EQ(static_cast<int>(lines.size()) + found.missing, bus.Inputs());
  EXPECT_LE(found.missing, CountLines(kLinkIsLost));
}

void LOAD_FIXTURE::LoseAdapter() {
  const int before = CountLines(kLinkIsLost);
  Unplug();
  io->Send("a1b0d00\n");
  ASSERT_TRUE(WaitForLines(kLinkIsLost, before + 1));
}
