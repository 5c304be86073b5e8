#include "sim/line/Adapter.h"
#include "tests/support/Wait.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>
#include <termios.h>

#include <algorithm>
#include <random>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// The default rack behind an adapter, in a folder of its own.
class Adapter : public ::testing::Test {
 protected:
  Adapter() : adapter(&rack, {folder.Path(), true}) {
    rack.PopulateDefault();
    EXPECT_TRUE(adapter.Plug(0));
  }

  std::string Link(int number) { return folder.File("ttyUSB" + std::to_string(number)); }

  TEMPORARY_FOLDER folder;
  support::RACK rack;
  support::ADAPTER adapter;
};

TEST_F(Adapter, AnswersTheHandshakeByteForByte) {
  rack.SetVersion("3.14");
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A}));
  EXPECT_EQ(near.Read(6), (Bytes{0x05, 0x40, '3', '.', '1', '4'}));
}

TEST_F(Adapter, AnswersTheIdentificationByteForByte) {
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x01, 0x30}));
  EXPECT_EQ(near.Read(18), (Bytes{0x11, 0x31, 5, 6, 0, 4, 0, 3, 0, 0, 8, 10, 0, 0, 0, 0, 9, 7}));
}

TEST_F(Adapter, PassesControlBytesUnchanged) {
  NEAR_END near(Link(0));
  Bytes body{0x10, 0x09, 0x18, 23};
  for (std::uint8_t byte = 0; byte < 23; ++byte)
    body.push_back(byte);  // 03, 04, 0A, 0D, 11, 13 and all the others that a terminal would take
  EXPECT_EQ(near.Exchange(body), (Bytes{0x41, 0x09}));
  EXPECT_EQ(rack.Field<std::vector<std::string>>(9, "sent"),
            std::vector<std::string>{ToHex(Bytes(body.begin() + 4, body.end()))});
}

TEST_F(Adapter, OutlivesEachOpeningAndClosing) {
  for (int i = 0; i < 20; ++i) {
    NEAR_END near(Link(0));
    ASSERT_TRUE(near.Open());
    EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
  }
}

TEST_F(Adapter, LogsEachRequestFrame) {
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02, 0x01, 0x30}));
  const auto second = adapter.Requests().WaitForFrame({0x01, 0x30}, kLimit);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->number, 2U);
  const auto all = adapter.Requests().Since();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].frame, (Bytes{0x03, 0x20, 0x03, 0x02}));
}

TEST_F(Adapter, IgnoresAFrameWithoutABody) {
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x00, 0x01, 0x30}));
  EXPECT_EQ(near.Read(2), (Bytes{0x11, 0x31}));
  EXPECT_EQ(adapter.Counters().silences, 1U);
}

TEST_F(Adapter, DropsARequestWhoseRestDoesNotCome) {
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x05, 0x10, 0x05}));
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  while (adapter.Counters().partialFrames == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
}

TEST_F(Adapter, LetsAHookAnswerInPieces) {
  adapter.SetReplyHook([](const REQUEST& request, const std::optional<Bytes>& answer) {
    EXPECT_EQ(request.frame, (Bytes{0x03, 0x20, 0x03, 0x02}));
    EXPECT_EQ(answer, (Bytes{0x21, 0x03, 0x00, 0x00}));
    return std::optional<REPLY>(REPLY{{0us, {0x04, 0x21}}, {2000us, {0x03, 0x55, 0xAA}}});
  });
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02}));
  EXPECT_EQ(near.Read(5), (Bytes{0x04, 0x21, 0x03, 0x55, 0xAA}));
}

TEST_F(Adapter, LetsAHookKeepSilentOrLeaveItToTheRack) {
  adapter.SetReplyHook([](const REQUEST& request, const std::optional<Bytes>&) {
    return request.Body() == Bytes{0x30} ? std::optional<REPLY>(REPLY{}) : std::nullopt;
  });
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x01, 0x30}));
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
  EXPECT_EQ(adapter.Counters().silences, 1U);
  EXPECT_EQ(adapter.Counters().replies, 1U);
}

TEST_F(Adapter, SendsWithoutBeingAsked) {
  NEAR_END near(Link(0));
  adapter.Send({0xDE, 0xAD});
  EXPECT_EQ(near.Read(2), (Bytes{0xDE, 0xAD}));
}

TEST_F(Adapter, HangsUpWhenUnpluggedAndComesBackUnderAnotherNumber) {
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Open());
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_TRUE(near.WaitForHangUp());
  EXPECT_FALSE(std::filesystem::is_symlink(Link(0)));
  EXPECT_FALSE(adapter.Plugged());
  ASSERT_TRUE(adapter.Plug(7));
  EXPECT_EQ(adapter.LinkPath(), Link(7));
  NEAR_END again(Link(7));
  EXPECT_EQ(again.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
}

TEST_F(Adapter, IsPulledOutInTheMiddleOfARequest) {
  for (std::size_t count = 0; count < 4; ++count) {
    const std::uint64_t before = adapter.Counters().bytesIn;
    NEAR_END near(Link(0));
    adapter.InterruptRequest(count);
    near.Write({0x03, 0x40, 0x6F, 0x9A});
    ASSERT_TRUE(support::WaitUntil([&] { return !adapter.Plugged(); }));
    EXPECT_EQ(adapter.Counters().bytesIn, before + count);
    EXPECT_EQ(adapter.Counters().requests, 0U);
    ASSERT_TRUE(adapter.Plug(0));
  }
}

TEST_F(Adapter, StartsAnewInTheMiddleOfARequestAndWaitsForMoreOfTheRest) {
  NEAR_END near(Link(0));
  adapter.InterruptRequest(1, 0ms);
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A}));
  EXPECT_TRUE(support::WaitUntil([&] { return adapter.Counters().partialFrames == 1; }));
  EXPECT_EQ(near.Exchange({0x40, 0x6F, 0x9A}), (Bytes{0x40, '2', '.', '0', '4'}));
}

TEST_F(Adapter, RefusesToPlugTwiceOrUnplugTwice) {
  EXPECT_EQ(adapter.Plug(1).text, "plugged in already as " + Link(0));
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_EQ(adapter.Unplug().text, "the adapter is not plugged in");
  EXPECT_EQ(adapter.Plug(1000).text, "an adapter's number is 0 to 999");
}

TEST_F(Adapter, RemovesItsLinkWhenItGoes) {
  {
    ADAPTER second(&rack, {folder.Path(), false});
    ASSERT_TRUE(second.Plug(1));
    EXPECT_TRUE(std::filesystem::is_symlink(Link(1)));
  }
  EXPECT_FALSE(std::filesystem::is_symlink(Link(1)));
}

TEST_F(Adapter, WithoutARackNeverAnswers) {
  support::ADAPTER second(nullptr, {folder.Path(), true});
  ASSERT_TRUE(second.Plug(1));
  NEAR_END near(Link(1));
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A}));
  ASSERT_TRUE(second.Requests().WaitForFrame({0x03, 0x40, 0x6F, 0x9A}, kLimit));
  second.Send({0x99});  // goes out after any answer would have
  EXPECT_EQ(near.Read(1), Bytes{0x99});
}

TEST_F(Adapter, ForgetsWhatAnEarlierOpenerDidNotRead) {
  std::mutex mutex;
  std::condition_variable changed;
  int closings = 0;
  adapter.SetListener([&](const std::string& line) {
    const std::lock_guard lock(mutex);
    closings += line == "adapter " + Link(0) + " closed" ? 1 : 0;
    changed.notify_all();
  });
  NEAR_END first(Link(0));
  ASSERT_TRUE(first.Write({0x01, 0x30}));
  ASSERT_TRUE(first.Readable(std::chrono::steady_clock::now() + kLimit));
  first.Close();
  std::unique_lock lock(mutex);
  ASSERT_TRUE(changed.wait_for(lock, kLimit, [&] { return closings == 1; }));
  lock.unlock();
  NEAR_END second(Link(0));
  EXPECT_EQ(second.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
  adapter.SetListener(nullptr);
}

TEST_F(Adapter, LosesWhatNobodyReadsInsteadOfStanding) {
  NEAR_END near(Link(0));
  const Bytes flood(1000, 0x30);
  for (int i = 0; i < 200; ++i)
    adapter.Send(flood);
  EXPECT_GT(adapter.Counters().bytesLost, 0U);
  ::tcflush(near.Get(), TCIFLUSH);
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
}

TEST_F(Adapter, SurvivesEveryLengthOfFrameAndEveryFirstByte) {
  NEAR_END near(Link(0));
  for (int length = 1; length <= 255; ++length) {
    Bytes body(static_cast<std::size_t>(length), static_cast<std::uint8_t>(length));
    EXPECT_FALSE(near.Exchange(body).empty()) << length;
  }
  EXPECT_EQ(adapter.Counters().requests, 255U);
}

TEST_F(Adapter, SurvivesBytesThatAreNoFramesAndAnswersTheNextOneAfterAGap) {
  NEAR_END near(Link(0));
  std::minstd_rand random;
  for (int round = 0; round < 200; ++round) {
    Bytes noise(1 + random() % 255);
    for (std::uint8_t& byte : noise)
      byte = static_cast<std::uint8_t>(random());
    // The line takes no more while the rack is busy with what it has.
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (!near.Write(noise)) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      static_cast<void>(near.Read(4096, ADAPTER::kFrameGap));
    }
  }
  // The last length byte may promise more than came; what a controller does not get, it forgets,
  // and with it a handshake or two.
  const Bytes answer{0x05, 0x40, '2', '.', '0', '4'};
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  bool isAnswered = false;
  while (!isAnswered && std::chrono::steady_clock::now() < deadline) {
    static_cast<void>(near.Write({0x03, 0x40, 0x6F, 0x9A}));
    const Bytes seen = near.Read(4096, 2 * ADAPTER::kFrameGap);
    isAnswered = std::search(seen.begin(), seen.end(), answer.begin(), answer.end()) != seen.end();
  }
  EXPECT_TRUE(isAnswered);
}

TEST_F(Adapter, AnswersFramesForAbsentCardsByteForByte) {
  NEAR_END near(Link(0));
  EXPECT_EQ(near.Exchange({0x20, 0x02, 0x02}), (Bytes{'C', 0x02}));
  EXPECT_EQ(near.Exchange({0x10, 0x04, 0x02, 0x00, 0x00}), (Bytes{'C', 0x04}));
  EXPECT_EQ(near.Exchange({0x50, 0x10, 0x01, 0xAB}), (Bytes{'C', 0x10}));
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
  for (std::thread& thread : threads)
    thread.join();
  if (!adapter.Plugged()) {
    ASSERT_TRUE(adapter.Plug(0));
  }
  NEAR_END near(adapter.LinkPath());
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x0F, 0x00}));
}

}  // namespace
}  // namespace sim
