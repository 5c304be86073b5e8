#pragma once

#include "tests/support/ConfigFile.h"
#include "tests/support/ReservedPort.h"
#include "tests/support/TcpClient.h"
#include "tests/support/Wait.h"
#include "tests/support/unit/FakePauses.h"
#include "tests/support/unit/FarEnd.h"
#include "tests/support/unit/Folder.h"
#include "vorn/master/Vorn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vorn {

namespace unit {

constexpr const char* kCaeGreeting =
    "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";
constexpr const char* kIoGreeting = "VORN IO interface is ready\r\n\r";
constexpr const char* kMonGreeting = "VORN MON interface is ready\r\n\r";

/// A central object with its configuration, and with the test's pauses and line: a far end that
/// identifies a digital input card at 3 and a digital output card at 5.
class Vorn : public testing::Test {
 protected:
  using LINES = std::vector<std::string>;
  using TCP_CLIENT = support::TCP_CLIENT;

  Vorn() {
    config.logFile = folder.File("log");
    config.cae.port = caePort.Port();
    config.io.port = ioPort.Port();
    config.mon.port = monPort.Port();
    pauses.SetLength(1, support::milliseconds(10));  // in which cards answer
    pauses.SetLength(2, support::milliseconds(1));
    line.List({line.Path()});
    line.AnswerWith([this](const BYTES& body) { return Answer(body); });
  }

  ~Vorn() override {
    Stop(SIGTERM);
    vorn.reset();
  }

  BYTES Answer(const BYTES& body) {
    switch (body.front()) {
      case '@':
        return Hex("05 6F 31 2E 30 37");
      case '0':
        return Hex("11 31 00 00 00 04 00 03 00 00 00 00 00 00 00 00 00 00");
      case 0x20:
        if (changesAtEachPoll) {
          const auto value = static_cast<std::uint8_t>(++changes);
          return Frame({'!', body[1], value, static_cast<std::uint8_t>(~value)});
        }
        return Frame({'!', body[1], firstGroup.load(), 0});
      case 'P':
        return Frame({'Q', body[1], 0, 0});
      default:
        return Hex("01 06");
    }
  }

  VORN& Make() {
    WriteFile(folder.File("vornconf.xml"), config.Text());
    vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
    return *vorn;
  }

  /// Runs the master loop on a thread of its own.
  void Start() {
    Make();
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
    loop = std::thread([this] { vorn->MasterThread(); });
  }

  /// An operator, with the cards in the table, and an IO client that does not read lines of 209
  /// bytes: of eight without their separator.
  std::pair<TCP_CLIENT, TCP_CLIENT> StartWithADeafIoClient() {
    config.speedPercent = "100";
    config.io.outSeparator = std::string(200, '-') + "\n";  // fills the connection sooner
    Start();
    TCP_CLIENT cae = ConnectCae();
    WaitForCards(cae);
    TCP_CLIENT io(config.io.port, {.smallBuffers = true});
    EXPECT_TRUE(io.Receives(kIoGreeting));
    return {std::move(cae), std::move(io)};
  }

  /// Polls, of which each makes two lines, pause since 24 KiB of them wait for that client, and 24
  /// without separator for the master loop.
  bool PausesPolling(TCP_CLIENT& cae) {
    changesAtEachPoll = true;
    Ask(cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"});
    return support::WaitUntil([&] {
      const int before = changes;
      return before >= (24 * 1024 / 209 + 24 * 1024 / 8) / 2 &&
             !support::WaitUntil([&] { return changes > before; }, 5 * support::kSilence);
    });
  }

  void Stop(int signalNumber) {
    if (loop.joinable()) {
      flag = signalNumber;
      loop.join();
    }
  }

  /// A client that has received its greeting. One that comes in the moment when the worker sees its
  /// predecessor leave is dropped, and comes again.
  static TCP_CLIENT Connect(int port, const char* greeting) {
    for (;;) {
      TCP_CLIENT client(port);
      if (client.WaitForFirstByte()) {
        EXPECT_TRUE(client.Receives(greeting));
        return client;
      }
    }
  }
  TCP_CLIENT ConnectCae() const { return Connect(config.cae.port, kCaeGreeting); }
  TCP_CLIENT ConnectIo() const { return Connect(config.io.port, kIoGreeting); }
  TCP_CLIENT ConnectMon() const { return Connect(config.mon.port, kMonGreeting); }

  struct CLIENTS {
    TCP_CLIENT cae;
    TCP_CLIENT io;
    TCP_CLIENT mon;
  };
  /// All three clients, and the cards in the table.
  CLIENTS StartWithAll() {
    Start();
    CLIENTS all = {ConnectCae(), ConnectIo(), ConnectMon()};
    WaitForCards(all.cae);
    return all;
  }

  /// One exact CAE command and its replies, by which the loop has made a pass or more.
  static void Ask(TCP_CLIENT& cae, const std::string& command, const LINES& replies) {
    cae.Send(command + "\r\n");
    for (const std::string& reply : replies) {
      EXPECT_TRUE(cae.Receives(reply + "\r\n\r"));
    }
    EXPECT_TRUE(cae.Receives(">\r\n\r"));
  }
  static void AskVersion(TCP_CLIENT& cae) { Ask(cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}); }

  /// The client ends its connection. The second before the close lasts until it has its farewell.
  void Exit(TCP_CLIENT& client, const std::string& separator) {
    pauses.Hold(1);
    client.Send("EXIT" + separator);
    EXPECT_TRUE(client.Receives("VORN: Bye Bye..." + separator + "\r"));
    pauses.Release(1);
  }

  /// A read of 255 bytes with a dozen commands, all answered at once: no card is at address 2.
  static std::string AskedAtOnce() {
    const std::string read =
        "SETANMASK:2=0 LCDSELFTEST: LCDINITLIGHT: STORESRVPOS: MOVESTRPOS: SETSC GETSC SETMSR "
        "GETMSR STOREMSRS POLLON: POLLOFF: GETLASTINPST:\r\n";
    return std::string(255 - read.size(), '-') + read;
  }

  /// Waits until the bus has asked for the cards and its answer is in the table.
  static void WaitForCards(TCP_CLIENT& cae) {
    EXPECT_TRUE(support::WaitUntil([&] {
      cae.Send("DISCOVER\r\n");
      const std::string list = cae.ReadUntil("\r\n\r>\r\n\r");
      return list.find("DTI:0x5:16 channel DIGITAL OUTPUT\r\n\r") != std::string::npos;
    }));
  }

  LINES Log() const { return ReadLog(config.logFile); }
  bool Logged(const std::string& text) const {
    const LINES log = Log();
    return std::find(log.begin(), log.end(), text) != log.end();
  }

  FOLDER folder;
  FAKE_PAUSES pauses{100};
  FAR_END line;
  const support::RESERVED_PORT caePort;
  const support::RESERVED_PORT ioPort;
  const support::RESERVED_PORT monPort;
  support::CONFIG config;
  std::atomic<std::uint8_t> firstGroup{0};
  std::atomic<bool> changesAtEachPoll{false};
  std::atomic<int> changes{0};
  SIGNAL_FLAG flag{kNoSignal};
  std::optional<VORN> vorn;
  std::thread loop;
};

}  // namespace unit

}  // namespace vorn
