#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>
#include <termios.h>

#include <algorithm>
#include <random>
#include <thread>

namespace sim {
namespace {

using namespace std::chrono_literals;

const Bytes kPollOf3{0x03, 0x20, 0x03, 0x02};
const Bytes kHandshake{0x03, 0x40, 0x6F, 0x9A};

/// The default rack behind an adapter, in a folder of its own, and a program at the near end.
class Adapter : public ::testing::Test {
 protected:
  Adapter() : adapter(&rack, {folder.Path()}), near(PlugIn()) {}

  std::string PlugIn() {
    rack.PopulateDefault();
    EXPECT_TRUE(adapter.Plug(0));
    return Link(0);
  }
  std::string Link(int number) { return folder.File("ttyUSB" + std::to_string(number)); }
  void ExpectAnswers(NEAR_END& end) { EXPECT_EQ(end.Ask("20 03 02"), "21 03 00 00"); }

  vorn::unit::FOLDER folder;
  support::RACK rack;
  support::ADAPTER adapter;
  NEAR_END near;
};

TEST_F(Adapter, AnswersByteForByteAndLogsEachRequest) {
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A, 0x01, 0x30}));
  EXPECT_EQ(ToHex(near.Read(24)),
            "05 40 32 2E 30 34 11 31 05 06 00 04 00 03 00 00 08 0A 00 00 00 00 09 07");
  const auto second = adapter.Requests().WaitForFrame({0x01, 0x30}, kLimit);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->number, 2U);
  EXPECT_EQ(second->Body(), Bytes{0x30});
  ASSERT_EQ(adapter.Requests().Since().size(), 2U);
  EXPECT_EQ(adapter.Requests().Since()[0].frame, kHandshake);
}

TEST_F(Adapter, PassesControlBytesUnchanged) {
  Bytes body{0x10, 0x09, 0x18, 23};
  for (std::uint8_t byte = 0; byte < 23; ++byte) {
    body.push_back(byte);  // 03, 04, 0A, 0D, 11, 13 and all the others that a terminal would take
  }
  EXPECT_EQ(near.Ask(ToHex(body)), "41 09");
  EXPECT_EQ(rack.Field<std::vector<std::string>>(9, "sent").at(0),
            ToHex(Bytes(body.begin() + 4, body.end())));
}

TEST_F(Adapter, OutlivesEachOpeningAndClosing) {
  for (int i = 0; i < 20; ++i) {
    NEAR_END other(Link(0));
    ExpectAnswers(other);
  }
}

TEST_F(Adapter, IgnoresAFrameWithoutABody) {
  ASSERT_TRUE(near.Write({0x00, 0x01, 0x30}));
  EXPECT_EQ(near.Read(2), (Bytes{0x11, 0x31}));
  EXPECT_EQ(adapter.Counters().silences, 1U);
}

TEST_F(Adapter, DropsARequestWhoseRestDoesNotCome) {
  ASSERT_TRUE(near.Write({0x05, 0x10, 0x05}));
  EXPECT_TRUE(support::WaitUntil([&] { return adapter.Counters().partialFrames == 1; }));
  ExpectAnswers(near);
  EXPECT_EQ(adapter.Requests().Last(), 1U);
}

TEST_F(Adapter, LetsAHookAnswerInPiecesKeepSilentOrLeaveItToTheRack) {
  adapter.SetReplyHook(
      [](const REQUEST& request, const std::optional<Bytes>& answer) -> std::optional<REPLY> {
        if (request.frame == kPollOf3) {
          EXPECT_EQ(answer, (Bytes{0x21, 0x03, 0x00, 0x00}));
          return REPLY{{0us, {0x04, 0x21}}, {2000us, {0x03, 0x55, 0xAA}}};
        }
        return request.Body() == Bytes{0x30} ? std::optional(REPLY{}) : std::nullopt;
      });
  EXPECT_EQ(near.Ask("20 03 02"), "21 03 55 AA");
  ASSERT_TRUE(near.Write({0x01, 0x30}));
  EXPECT_EQ(near.Ask("20 08 01"), "21 08 00");
  EXPECT_EQ(adapter.Counters().silences, 1U);
  EXPECT_EQ(adapter.Counters().replies, 2U);
}

TEST_F(Adapter, LetsFaultsSpoilWhatGoesOutAndSaysSo) {
  std::vector<std::string> said;
  adapter.SetListener([&said](const std::string& line) {
    if (line.starts_with("fault")) {
      said.push_back(line);
    }
  });
  adapter.Faults().Add({.kind = FAULT_KIND::kTrailing, .bytes = {0xAA}});
  adapter.Faults().Add({.kind = FAULT_KIND::kLate, .time = 20ms});
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(near.Write(kPollOf3));
  EXPECT_EQ(ToHex(near.Read(6)), "04 21 03 00 00 AA");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_EQ(said, (std::vector<std::string>{"fault trailing AA hit 03 20 03 02",
                                            "fault late 20 hit 03 20 03 02"}));
}

TEST_F(Adapter, ReportsEachCrossingOfTheLine) {
  std::vector<std::string> seen;
  adapter.AddTap([&seen](DIRECTION direction, TIME, const Bytes& bytes) {
    seen.push_back((direction == DIRECTION::kRequest ? "> " : "< ") + ToHex(bytes));
  });
  adapter.Faults().Add({.kind = FAULT_KIND::kSplit, .time = 1ms});
  EXPECT_EQ(near.Ask("20 08 01"), "21 08 00");
  ASSERT_TRUE(near.Write({0x05, 0x10}));
  EXPECT_TRUE(support::WaitUntil([&] { return adapter.Counters().partialFrames == 1; }));
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_EQ(seen,
            (std::vector<std::string>{"> 03 20 08 01", "< 03", "< 21", "< 08", "< 00", "> 05 10"}));
}

TEST_F(Adapter, StartsAnewAndIsDeafForItsTime) {
  ASSERT_EQ(near.Ask("10 05 02 00 00"), "41 05");
  adapter.ResetController(1h);
  ASSERT_TRUE(near.Write(kPollOf3));
  ASSERT_TRUE(adapter.Requests().WaitForFrame(kPollOf3, kLimit));
  EXPECT_EQ(rack.Value(5, 0), 0xFF);
  adapter.ResetController(0ms);
  EXPECT_EQ(near.Ask("20 08 01"), "21 08 00");
}

TEST_F(Adapter, HangsUpWhenUnpluggedAndComesBackUnderAnotherNumber) {
  EXPECT_EQ(adapter.Plug(1).text, "plugged in already as " + Link(0));
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_TRUE(near.WaitForHangUp());
  EXPECT_FALSE(std::filesystem::is_symlink(Link(0)));
  EXPECT_FALSE(adapter.Plugged());
  EXPECT_EQ(adapter.Unplug().text, "the adapter is not plugged in");
  EXPECT_EQ(adapter.Plug(1000).text, "an adapter's number is 0 to 999");
  ASSERT_TRUE(adapter.Plug(7));
  EXPECT_EQ(adapter.LinkPath(), Link(7));
  NEAR_END again(Link(7));
  ExpectAnswers(again);
}

TEST_F(Adapter, IsPulledOutInTheMiddleOfARequest) {
  for (std::size_t count = 0; count < 4; ++count) {
    const std::uint64_t before = adapter.Counters().bytesIn;
    NEAR_END end(Link(0));
    adapter.InterruptRequest(count);
    end.Write(kHandshake);
    ASSERT_TRUE(support::WaitUntil([&] { return !adapter.Plugged(); }));
    EXPECT_EQ(adapter.Counters().bytesIn, before + count);
    EXPECT_EQ(adapter.Counters().requests, 0U);
    ASSERT_TRUE(adapter.Plug(0));
  }
}

TEST_F(Adapter, StartsAnewInTheMiddleOfARequestAndWaitsForMoreOfTheRest) {
  adapter.InterruptRequest(1, 0ms);
  ASSERT_TRUE(near.Write(kHandshake));
  EXPECT_TRUE(support::WaitUntil([&] { return adapter.Counters().partialFrames == 1; }));
  ExpectAnswers(near);
}

TEST_F(Adapter, WithoutARackNeverAnswersAndIsGoneWithItsLinkInTheEnd) {
  {
    support::ADAPTER second(nullptr, {.devDir = folder.Path(), .realTime = false});
    ASSERT_TRUE(second.Plug(1));
    NEAR_END end(Link(1));
    ASSERT_TRUE(end.Write(kHandshake));
    ASSERT_TRUE(second.Requests().WaitForFrame(kHandshake, kLimit));
    second.Send({0x99});  // goes out after any answer would have
    EXPECT_EQ(end.Read(1), Bytes{0x99});
  }
  EXPECT_FALSE(std::filesystem::is_symlink(Link(1)));
}

TEST_F(Adapter, ForgetsWhatAnEarlierOpenerDidNotRead) {
  std::atomic<int> closings{0};
  adapter.SetListener([&](const std::string& line) {
    closings += line == "adapter " + Link(0) + " closed" ? 1 : 0;
  });
  ASSERT_TRUE(near.Write({0x01, 0x30}));
  ASSERT_TRUE(near.Readable(std::chrono::steady_clock::now() + kLimit));
  near.Close();
  ASSERT_TRUE(support::WaitUntil([&] { return closings == 1; }));
  NEAR_END second(Link(0));
  ExpectAnswers(second);
  adapter.SetListener(nullptr);
}

TEST_F(Adapter, LosesWhatNobodyReadsInsteadOfStanding) {
  const Bytes flood(1000, 0x30);
  for (int i = 0; i < 200; ++i) {
    adapter.Send(flood);
  }
  EXPECT_GT(adapter.Counters().bytesLost, 0U);
  tcflush(near.Get(), TCIFLUSH);
  ExpectAnswers(near);
}

TEST_F(Adapter, SurvivesEveryLengthOfFrame) {
  for (int length = 1; length <= 255; ++length) {
    Bytes body(static_cast<std::size_t>(length), static_cast<std::uint8_t>(length));
    EXPECT_NE(near.Ask(ToHex(body)), "silence") << length;
  }
  EXPECT_EQ(adapter.Counters().requests, 255U);
}

TEST_F(Adapter, SurvivesBytesThatAreNoFramesAndAnswersTheNextOneAfterAGap) {
  std::minstd_rand random;
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  for (int round = 0; round < 200; ++round) {
    Bytes noise(1 + random() % 255);
    for (std::uint8_t& byte : noise) {
      byte = static_cast<std::uint8_t>(random());
    }
    // The line takes no more while the rack is busy with what it has.
    while (!near.Write(noise)) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      static_cast<void>(near.Read(4096, ADAPTER::kFrameGap));
    }
  }
  // The last length byte may promise more than came; what a controller does not get, it forgets,
  // and with it a handshake or two.
  const Bytes answer{0x05, 0x40, '2', '.', '0', '4'};
  bool isAnswered = false;
  while (!isAnswered && std::chrono::steady_clock::now() < deadline) {
    static_cast<void>(near.Write(kHandshake));
    const Bytes seen = near.Read(4096, 2 * ADAPTER::kFrameGap);
    isAnswered = std::search(seen.begin(), seen.end(), answer.begin(), answer.end()) != seen.end();
  }
  EXPECT_TRUE(isAnswered);
}

TEST_F(Adapter, IsPluggedAndUsedByManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 50; ++round) {
        static_cast<void>(i % 2 == 0 ? adapter.Plug(i) : adapter.Unplug());
        adapter.Send({0x01});
        static_cast<void>(adapter.LinkPath());
        static_cast<void>(rack.Press(3, i));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  if (!adapter.Plugged()) {
    ASSERT_TRUE(adapter.Plug(0));
  }
  NEAR_END end(adapter.LinkPath());
  EXPECT_EQ(end.Ask("20 03 02"), "21 03 0F 00");
}

}  // namespace
}  // namespace sim
