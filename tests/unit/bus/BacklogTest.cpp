// What the worker does while others are behind.

#include "tests/unit/bus/SerialFixture.h"

namespace unit {
namespace {

constexpr std::size_t kLinesThatHoldPolling = 1024;

using SerialBacklog = SERIAL_FIXTURE;

TEST_F(SerialBacklog, NoCardIsPolledWhileTheMasterLoopIs1024LinesBehind) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  cards.With(3, [](PERIFCARD& card) {
    card.stateWord = kInputCard;
    card.pollFlag = 1;
    card.pollFrame = HexList("20 03 02");
  });
  for (std::size_t i = 0; i < kLinesThatHoldPolling; ++i) {
    inbound.ToQueue(HexList("61"));
  }
  EXPECT_TRUE(worker.OnTask());
  EXPECT_TRUE(worker.BusQueue(3).IsEmpty());

  inbound.DeQueue();
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(TakeAll(worker.BusQueue(3)).size(), 1U);
}

TEST_F(SerialBacklog, LinksLostAgainAndAgainDoNotPileUpPolls) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  for (const std::size_t slot : {3U, 8U}) {
    cards.With(slot, [slot](PERIFCARD& card) {
      card.stateWord = kInputCard;
      card.pollFlag = 1;
      card.pollFrame = {0x20, static_cast<char>(slot), 1};
    });
  }
  // Card 3's poll costs the link each time, so that card 8's is never reached.
  line.AnswerWith(
      [](const BYTES& body) { return body.front() == '@' ? Hex(kHandshakeReply) : Hex("01 54"); });
  for (int pass = 0; pass < 40; ++pass) {
    worker.OnTask();
  }
  EXPECT_GT(line.Requests().size(), 40U);
  EXPECT_EQ(worker.BusQueue(3).Size(), 1U);
  EXPECT_EQ(worker.BusQueue(8).Size(), 16U);
}

TEST_F(SerialBacklog, TheBusIsAsFarBehindAsItsLongestQueue) {
  SERIAL_INTERFACE& worker = MakeWorker();
  EXPECT_EQ(worker.BusBacklog(), 0U);
  for (const std::size_t queue : {0U, 5U, 5U, 5U, 16U, 16U}) {
    worker.BusQueue(queue).ToQueue(HexList("10"));
  }
  EXPECT_EQ(worker.BusBacklog(), 3U);
}

}  // namespace
}  // namespace unit
