#include "client/Session.h"
#include "tests/unit/client/FakeDaemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace client {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using STATE = SESSION_STATE;
using STATES = std::vector<STATE>;
using LINES = std::vector<std::string>;

/// A session with a daemon of its own, at a time that moves only when a test says so.
class Session : public testing::Test {
 protected:
  Session() { m_settings.endpoints = {m_daemon.Endpoint()}; }

  /// The session, of IO where nothing else is said; made at the first use.
  SESSION& Of(INTERFACE interface = INTERFACE::kIo) {
    if (!m_session) {
      m_session = std::make_unique<SESSION>(interface, m_settings);
      m_session->OnLine([this](std::string_view line) {
        m_lines.emplace_back(line);
        if (m_inLine) {
          m_inLine();
        }
      });
      m_session->OnState([this](STATE state) {
        m_states.push_back(state);
        if (m_inState) {
          m_inState(state);
        }
      });
      m_session->OnOver([this] { ++m_overs; });
    }
    return *m_session;
  }

  template <class PREDICATE>
  bool Until(PREDICATE holds) {
    return HandleUntil(Of(), Of(), m_now, holds);
  }
  bool UntilState(STATE state) {
    return Until([&] { return Of().State() == state; });
  }
  void Pass(CLOCK::duration time) {
    m_now += time;
    Of().Handle(m_now);
  }
  /// To the deadline and no further.
  void PassToDeadline() {
    ASSERT_LT(Of().Deadline(), TIME::max());
    m_now = std::max(m_now, Of().Deadline());
    Of().Handle(m_now);
  }

  void BeginToWait() {
    m_daemon.Listen();
    Of().Start(m_now);
    ASSERT_TRUE(UntilState(STATE::kWaiting));
    m_daemon.Accept();
  }
  void BeReady() {
    BeginToWait();
    m_daemon.Greet(Of().Interface());
    ASSERT_TRUE(UntilState(STATE::kReady));
  }
  /// So many bytes wait to be read.
  bool HasCome(int bytes) {
    return support::WaitUntil([&] {
      int count = 0;
      ioctl(Of().Descriptor(), FIONREAD, &count);
      return count >= bytes;
    });
  }

  FAKE_DAEMON m_daemon;
  SESSION_SETTINGS m_settings;
  std::unique_ptr<SESSION> m_session;
  TIME m_now{hours(1)};
  LINES m_lines;
  STATES m_states;
  std::function<void()> m_inLine;
  std::function<void(STATE)> m_inState;
  int m_overs = 0;
};

// --- until the greeting -------------------------------------------------------------------------

TEST_F(Session, IsIdleUntilItIsStarted) {
  EXPECT_EQ(Of().State(), STATE::kIdle);
  EXPECT_EQ(Of().Descriptor(), -1);
  EXPECT_EQ(Of().Events(), 0);
  EXPECT_EQ(Of().Deadline(), TIME::max());
  Of().Handle(m_now);
  EXPECT_EQ(m_states, STATES{});
}

TEST_F(Session, NeedsAnEndpoint) {
  EXPECT_THROW(SESSION(INTERFACE::kIo, SESSION_SETTINGS()), std::invalid_argument);
}

TEST_F(Session, IsReadyWhenItIsGreeted) {
  BeReady();
  EXPECT_EQ(m_states, (STATES{STATE::kConnecting, STATE::kWaiting, STATE::kReady}));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
  EXPECT_EQ(Of().Deadline(), TIME::max());
  EXPECT_EQ(Of().Events(), POLLIN);
  EXPECT_EQ(m_overs, 0);
}

TEST_F(Session, ConnectsWithoutBlockingForNoChildToInherit) {
  BeReady();
  EXPECT_NE(fcntl(Of().Descriptor(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(Of().Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(Session, MissesAMachineThatHasVanished) {
  BeReady();
  const auto option = [&](int level, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    getsockopt(Of().Descriptor(), level, name, &value, &size);
    return value;
  };
  EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 15);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPINTVL), 5);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPCNT), 3);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 30000);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST_F(Session, DropsWhatAnEarlierClientLeftAndDeliversWhatFollowsTheGreeting) {
  BeginToWait();
  m_daemon.Say("a3b0d01\r\n\r" + std::string(GreetingOf(INTERFACE::kIo)) + "a3b0d02\r\n\ra3b");
  ASSERT_TRUE(Until([&] { return !m_lines.empty(); }));
  EXPECT_EQ(m_lines, LINES{"a3b0d02"});
  m_daemon.Say("0d03\r\n\r");
  ASSERT_TRUE(Until([&] { return m_lines.size() > 1; }));
  EXPECT_EQ(m_lines[1], "a3b0d03");
}

TEST_F(Session, TriesAgainAfterLongerAndLongerPausesWhileThePortRefuses) {
  Of().Start(m_now);
  for (const int pause : {100, 200, 400, 800, 1000, 1000}) {
    ASSERT_TRUE(UntilState(STATE::kPausing));
    EXPECT_EQ(Of().Trouble(), TROUBLE::kRefused);
    EXPECT_EQ(Of().Descriptor(), -1);
    EXPECT_EQ(Of().Deadline() - m_now, milliseconds(pause));
    m_states.clear();
    Pass(milliseconds(pause - 1));
    EXPECT_EQ(m_states, STATES{}) << "it tries too early";
    Pass(milliseconds(1));
    ASSERT_FALSE(m_states.empty()) << "it does not try again";
    EXPECT_EQ(m_states.front(), STATE::kConnecting);
  }
}

TEST_F(Session, FindsTheDaemonWhenThePortRefusesNoLonger) {
  Of().Start(m_now);
  ASSERT_TRUE(UntilState(STATE::kPausing));
  m_daemon.Listen();
  Pass(milliseconds(100));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
}

TEST_F(Session, BreaksAPauseOffWhenItIsToldToTry) {
  Of().Start(m_now);
  ASSERT_TRUE(UntilState(STATE::kPausing));
  m_daemon.Listen();
  Of().TryNow(m_now);
  EXPECT_EQ(Of().State(), STATE::kConnecting);
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  m_states.clear();
  Of().TryNow(m_now);
  EXPECT_EQ(m_states, STATES{}) << "it did not pause";
}

TEST_F(Session, SaysThatThereIsNoDaemonWhenThePortHasRefusedForSixSeconds) {
  Of().Start(m_now);
  const TIME start = m_now;
  while (Of().State() != STATE::kFailed) {
    ASSERT_TRUE(Until([&] { return Of().State() != STATE::kConnecting; }));
    EXPECT_EQ(Of().Trouble(), m_now - start < seconds(6) ? TROUBLE::kRefused : TROUBLE::kNoDaemon);
    PassToDeadline();
  }
  EXPECT_EQ(m_now - start, seconds(9)) << "it is not patient to the end";
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNoDaemon);
  EXPECT_EQ(m_overs, 1);
  EXPECT_EQ(Of().Deadline(), TIME::max());
}

TEST_F(Session, CountsRefusalsAnewAfterAConnection) {
  m_settings.givesUp = false;
  Of().Start(m_now);
  ASSERT_TRUE(UntilState(STATE::kPausing));
  Pass(seconds(5));
  ASSERT_TRUE(UntilState(STATE::kPausing));
  m_daemon.Listen();
  Pass(seconds(1));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  m_daemon.Accept();
  m_daemon.Refuse();
  m_daemon.Reset();
  ASSERT_TRUE(UntilState(STATE::kPausing));
  Pass(seconds(1));
  ASSERT_TRUE(UntilState(STATE::kPausing));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kRefused);
}

TEST_F(Session, SaysThatTheInterfaceIsTakenWhenNoGreetingComesInItsTime) {
  BeginToWait();
  Pass(milliseconds(3599));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
  EXPECT_EQ(Of().Deadline(), m_now + milliseconds(1));
  Pass(milliseconds(1));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
  EXPECT_EQ(Of().State(), STATE::kWaiting) << "it does not wait on";
  m_daemon.Greet(INTERFACE::kIo);
  ASSERT_TRUE(UntilState(STATE::kReady));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
}

TEST_F(Session, GivesUpWhenItsPatienceEnds) {
  BeginToWait();
  EXPECT_EQ(Of().GivesUpAt(), m_now + seconds(9));
  Pass(seconds(8));
  EXPECT_EQ(Of().Deadline(), m_now + seconds(1));
  EXPECT_EQ(Of().State(), STATE::kWaiting);
  Pass(seconds(1));
  EXPECT_EQ(Of().State(), STATE::kFailed);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
  EXPECT_EQ(Of().Descriptor(), -1);
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, KnowsATroubleHoweverShortItsPatience) {
  m_settings.patience = milliseconds(50);
  BeginToWait();
  Pass(milliseconds(50));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
}

TEST_F(Session, TakesAGreetingThatHasComeWhenItsPatienceEnds) {
  BeginToWait();
  m_daemon.Greet(INTERFACE::kIo);
  ASSERT_TRUE(HasCome(1));
  Pass(seconds(9));
  EXPECT_EQ(Of().State(), STATE::kReady);
}

TEST_F(Session, IsPatientAnewWhenItIsStartedAnew) {
  m_settings.patience = milliseconds(50);
  Of().Start(m_now);
  Pass(milliseconds(50));
  ASSERT_EQ(Of().State(), STATE::kFailed);
  BeReady();
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, DoesNotGiveUpWhereItIsNotTo) {
  m_settings.givesUp = false;
  BeginToWait();
  EXPECT_EQ(Of().GivesUpAt(), TIME::max());
  Pass(hours(1000));
  EXPECT_EQ(Of().State(), STATE::kWaiting);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
}

TEST_F(Session, TriesAgainWhenItIsResetBeforeTheGreeting) {
  BeginToWait();
  Pass(seconds(5));
  m_daemon.Reset();
  ASSERT_TRUE(UntilState(STATE::kPausing));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
  EXPECT_EQ(m_overs, 0);
  Pass(milliseconds(100));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
}

TEST_F(Session, TriesAgainWhenItIsClosedBeforeTheGreeting) {
  BeginToWait();
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kPausing));
  Pass(milliseconds(100));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
}

TEST_F(Session, DoesNotHammerWhatClosesAtOnce) {
  m_settings.givesUp = false;
  m_daemon.Listen();
  Of().Start(m_now);
  for (const int pause : {100, 200, 400, 800, 1000, 1000}) {
    ASSERT_TRUE(UntilState(STATE::kWaiting));
    m_daemon.Accept();
    m_daemon.Leave();
    ASSERT_TRUE(UntilState(STATE::kPausing));
    EXPECT_EQ(Of().Deadline() - m_now, milliseconds(pause));
    Pass(milliseconds(pause));
  }
}

TEST_F(Session, SaysThatTheMachineIsNotReachedWhereThereIsNoWay) {
  m_settings.endpoints = Resolve("255.255.255.255", 5000);
  Of().Start(m_now);
  ASSERT_TRUE(UntilState(STATE::kPausing));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotReached);
}

TEST_F(Session, SaysThatTheInterfaceIsTakenWhereSoManyWaitThatItsPortDoesNotAnswer) {
  // Nobody accepts, and there is no room to wait.
  m_daemon.Listen(0);
  std::vector<DESCRIPTOR> others;
  for (int i = 0; i < 4; ++i) {
    others.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const ENDPOINT endpoint = m_daemon.Endpoint();
    static_cast<void>(connect(others.back().Get(),
                              reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.size));
  }
  Of().Start(m_now);
  Pass(milliseconds(3999));
  EXPECT_EQ(Of().State(), STATE::kConnecting);
  EXPECT_EQ(Of().Events(), POLLOUT);
  EXPECT_EQ(Of().Deadline(), m_now + milliseconds(1));
  Pass(milliseconds(1));
  EXPECT_EQ(Of().State(), STATE::kPausing);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kTaken);
}

TEST_F(Session, TriesAgainWhenThereAreNoDescriptorsLeft) {
  m_daemon.Listen();
  Of();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  Of().Start(m_now);
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(Of().State(), STATE::kPausing);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotReached);
  EXPECT_EQ(Of().Deadline(), m_now + milliseconds(100));
  Pass(milliseconds(100));
  EXPECT_TRUE(UntilState(STATE::kWaiting));
}

TEST_F(Session, TriesItsEndpointsInTurnWithAPauseAfterTheLast) {
  FAKE_DAEMON second;
  m_settings.endpoints.push_back(second.Endpoint());
  Of().Start(m_now);
  ASSERT_TRUE(UntilState(STATE::kPausing));
  second.Listen();
  Pass(milliseconds(100));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  second.Accept();
  second.Greet(INTERFACE::kIo);
  EXPECT_TRUE(UntilState(STATE::kReady));
}

TEST_F(Session, SaysThatItIsNotVornThatSpeaksAndDoesNotGreet) {
  BeginToWait();
  m_daemon.Say("SSH-2.0-something\r\n");
  ASSERT_TRUE(HasCome(1));
  Pass(milliseconds(1));
  Pass(milliseconds(3599));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
  Pass(milliseconds(1));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
  EXPECT_EQ(Of().State(), STATE::kWaiting) << "the greeting may be on its way";
  Pass(seconds(9));
  EXPECT_EQ(Of().State(), STATE::kFailed);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
}

TEST_F(Session, SaysThatItIsNotVornThatSpeaksAndCloses) {
  BeginToWait();
  m_daemon.Say("x");
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kPausing));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
}

TEST_F(Session, SaysThatItIsNotVornHoweverShortItsPatience) {
  m_settings.patience = milliseconds(50);
  BeginToWait();
  m_daemon.Say("x");
  ASSERT_TRUE(HasCome(1));
  Pass(milliseconds(50));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
}

TEST_F(Session, LeavesWhatIsNotVornForAWhileWhereItGoesOnForGood) {
  m_settings.givesUp = false;
  BeginToWait();
  m_daemon.Say("220 mail\r\n");
  ASSERT_TRUE(HasCome(1));
  Pass(seconds(0));
  Pass(milliseconds(3600));
  Pass(seconds(9));
  EXPECT_EQ(Of().State(), STATE::kPausing);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
  EXPECT_EQ(Of().Deadline(), m_now + seconds(10));
}

TEST_F(Session, ReadsNoMoreThanAnEarlierClientCanHaveLeft) {
  BeginToWait();
  const std::string piece(16384, 'x');
  for (int i = 0; i < 64; ++i) {
    m_daemon.Say(piece);
    ASSERT_TRUE(HasCome(16384));
    Of().Handle(m_now);
    ASSERT_EQ(Of().State(), STATE::kWaiting);
  }
  m_daemon.Say("x");
  ASSERT_TRUE(UntilState(STATE::kFailed)) << "it reads for good";
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNotVorn);
}

TEST_F(Session, SaysWhichOtherInterfaceItHasFound) {
  BeginToWait();
  m_daemon.Greet(INTERFACE::kMon);
  ASSERT_TRUE(UntilState(STATE::kFailed)) << "no patience helps";
  EXPECT_EQ(Of().Trouble(), TROUBLE::kOtherInterface);
  EXPECT_EQ(Of().Explain(),
            "port " + std::to_string(m_daemon.Port()) + " is the daemon's MON interface, not IO");
}

TEST_F(Session, ExplainsItsTroubleWithTheAddress) {
  BeginToWait();
  Pass(seconds(9));
  EXPECT_EQ(Of().Explain(),
            "IO is taken by another client (127.0.0.1:" + std::to_string(m_daemon.Port()) + ")");
}

TEST(SessionTrouble, IsDescribedInWords) {
  const std::vector<std::pair<TROUBLE, std::string>> texts = {
      {TROUBLE::kNone, "no trouble with MON"},
      {TROUBLE::kTaken, "MON is taken by another client"},
      {TROUBLE::kRefused,
       "the port of MON refuses: a client has just left, or vorn is not running"},
      {TROUBLE::kNoDaemon,
       "nothing listens on the port of MON: vorn is not running, or has another port"},
      {TROUBLE::kNotReached, "the machine of MON cannot be reached"},
      {TROUBLE::kNotVorn, "what listens on the port of MON is not vorn"},
      {TROUBLE::kOtherInterface, "the port of MON is another interface's of vorn"},
      {TROUBLE::kLost, "the connection to MON was lost"},
  };
  for (const auto& [trouble, text] : texts) {
    EXPECT_EQ(Describe(INTERFACE::kMon, trouble), text);
  }
}

TEST(SessionDeadline, IsRoundedUpForPoll) {
  const TIME now{hours(1)};
  EXPECT_EQ(PollTimeout(TIME::max(), now), -1);
  EXPECT_EQ(PollTimeout({}, now), 0);
  EXPECT_EQ(PollTimeout(now, now), 0);
  EXPECT_EQ(PollTimeout(now + std::chrono::nanoseconds(1), now), 1);
  EXPECT_EQ(PollTimeout(now + seconds(2), now), 2000);
  EXPECT_EQ(PollTimeout(TIME::max() - seconds(1), now), 24 * 3600 * 1000);
}

// --- lines, both ways ---------------------------------------------------------------------------

TEST_F(Session, TakesNoLineUntilItIsReady) {
  EXPECT_FALSE(Of().Send("a5b1dFB"));
  BeginToWait();
  EXPECT_FALSE(Of().Send("a5b1dFB"));
  EXPECT_EQ(Of().Unsent(), 0U);
}

TEST_F(Session, WritesTheLinesThatWaitInOnePiece) {
  BeReady();
  EXPECT_TRUE(Of().Send("a5b1dFB"));
  EXPECT_TRUE(Of().Send("a0b4d80"));
  EXPECT_EQ(Of().Unsent(), 18U);
  EXPECT_EQ(Of().Events(), POLLIN | POLLOUT);
  EXPECT_TRUE(m_daemon.HearsNothing());
  Of().Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "a5b1dFB\r\na0b4d80\r\n");
  EXPECT_EQ(Of().Unsent(), 0U);
  EXPECT_EQ(Of().Events(), POLLIN);
}

TEST_F(Session, WritesAtOnceWhenItIsTold) {
  BeReady();
  Of().Send("a5b1dFB");
  Of().Flush();
  EXPECT_EQ(m_daemon.Hear(), "a5b1dFB\r\n");
}

TEST_F(Session, EndsLinesAsTheDaemonIsConfigured) {
  m_settings.inpSeparator = "|";
  m_settings.outSeparators = {";", "\n"};
  BeReady();
  Of().Send("EXIT");
  Of().Flush();
  EXPECT_EQ(m_daemon.Hear(), "EXIT|");
  m_daemon.Say("a3b0d40;\ra3b1d41\n\r");
  ASSERT_TRUE(Until([&] { return m_lines.size() == 2; }));
  EXPECT_EQ(m_lines, (LINES{"a3b0d40", "a3b1d41"}));
}

TEST_F(Session, SendsWhatAHandlerSendsWithinTheSameHandle) {
  BeReady();
  m_inLine = [&] { Of().Send("seen"); };
  m_daemon.Say("a3b0d40\r\n\r");
  ASSERT_TRUE(Until([&] { return !m_lines.empty(); }));
  EXPECT_EQ(Of().Unsent(), 0U);
  EXPECT_EQ(m_daemon.Hear(), "seen\r\n");
}

TEST_F(Session, TakesNoMoreThanItsBoundWhenTheDaemonDoesNotReadAndLosesNothing) {
  BeReady();
  const std::string line(98, 'x');
  std::size_t taken = 0;
  do {
    Of().Handle(m_now);
    while (Of().Send(line)) {
      taken += line.size() + 2;
    }
    EXPECT_LT(Of().Unsent(), SESSION::kMostUnsent + line.size() + 2);
    Of().Handle(m_now);
  } while (Of().Unsent() == 0);
  EXPECT_GE(taken, SESSION::kMostUnsent);
  std::string heard;
  while (heard.size() < taken) {
    heard += m_daemon.Hear();
    Of().Handle(m_now);
  }
  EXPECT_EQ(heard.size(), taken);
  std::size_t wrong = 0;
  for (std::size_t at = 0; at + 100 <= heard.size(); at += 100) {
    wrong += heard.compare(at, 100, line + "\r\n") != 0 ? 1 : 0;
  }
  EXPECT_EQ(wrong, 0U);
}

TEST_F(Session, TakesALongLineWhenNothingWaits) {
  BeReady();
  EXPECT_TRUE(Of().Send(std::string(2 * SESSION::kMostUnsent, 'x')));
  EXPECT_FALSE(Of().Send("a"));
}

TEST_F(Session, ReadsAFloodInPortions) {
  BeReady();
  m_daemon.Say(std::string(50, '\r') + "\n");
  for (int i = 0; i < 100; ++i) {
    m_daemon.Say(std::string(998, 'x') + "\r\n");
  }
  ASSERT_TRUE(HasCome(100000));
  Of().Handle(m_now);
  EXPECT_GT(m_lines.size(), 32U);
  EXPECT_LE(m_lines.size(), 66U);
  EXPECT_TRUE(Until([&] { return m_lines.size() == 100; }));
}

TEST_F(Session, MayBeEndedInsideALineAndThenDeliversNoOther) {
  BeReady();
  m_inLine = [&] { Of().End(); };
  m_daemon.Say("one\r\n\rtwo\r\n\r");
  ASSERT_TRUE(UntilState(STATE::kIdle));
  EXPECT_EQ(m_lines, LINES{"one"});
  EXPECT_EQ(m_overs, 1);
  EXPECT_EQ(m_daemon.Hear(), "");
}

TEST_F(Session, MayBeEndedInsideALineOfAFlood) {
  BeReady();
  m_inLine = [&] { Of().End(); };
  for (int i = 0; i < 50; ++i) {
    m_daemon.Say(std::string(998, 'x') + "\r\n");
  }
  ASSERT_TRUE(HasCome(50000));
  Of().Handle(m_now);
  EXPECT_EQ(Of().State(), STATE::kIdle);
  EXPECT_EQ(m_lines.size(), 1U);
}

TEST_F(Session, MayBeStartedInsideALineAndThenDeliversNothingOfTheOldConnection) {
  BeReady();
  m_inLine = [&] { Of().Start(m_now); };
  m_daemon.Say("one\r\n\rtwo\r\n\rthr");
  ASSERT_TRUE(Until([&] { return !m_lines.empty(); }));
  m_inLine = nullptr;
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  m_daemon.Accept();
  m_daemon.Say(std::string(GreetingOf(INTERFACE::kIo)) + "four\r\n\r");
  ASSERT_TRUE(Until([&] { return m_lines.size() == 2; }));
  EXPECT_EQ(m_lines, (LINES{"one", "four"}));
}

TEST_F(Session, MayBeEndedInsideItsReadiness) {
  BeginToWait();
  m_inState = [&](STATE state) {
    if (state == STATE::kReady) {
      Of().End();
    }
  };
  m_daemon.Say(std::string(GreetingOf(INTERFACE::kIo)) + "one\r\n\r");
  ASSERT_TRUE(UntilState(STATE::kIdle));
  EXPECT_EQ(m_lines, LINES{});
  EXPECT_EQ(m_states.back(), STATE::kIdle);
}

TEST_F(Session, MayBeStartedAgainInsideItsFailure) {
  m_settings.patience = milliseconds(50);
  m_inState = [&](STATE state) {
    if (state == STATE::kFailed) {
      m_daemon.Listen();
      Of().Start(m_now);
    }
  };
  Of().Start(m_now);
  Pass(milliseconds(50));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
}

// --- the end ------------------------------------------------------------------------------------

TEST_F(Session, DeliversWhatCameBeforeTheEndOfTheConnection) {
  BeReady();
  std::size_t linesAtTheEnd = 0;
  m_inState = [&](STATE) { linesAtTheEnd = m_lines.size(); };
  m_daemon.Say("one\r\n\rtwo\r\n\r");
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kFailed));
  EXPECT_EQ(linesAtTheEnd, 2U);
  EXPECT_EQ(Of().Trouble(), TROUBLE::kLost);
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, SurvivesWritingToAConnectionThatIsReset) {
  BeReady();
  m_daemon.Reset();
  ASSERT_TRUE(support::WaitUntil([&] {
    Of().Send("a5b1dFB");
    Of().Flush();
    pollfd look{Of().Descriptor(), POLLIN, 0};
    return poll(&look, 1, 0) == 1 && (look.revents & POLLHUP) != 0;
  }));
  EXPECT_EQ(Of().State(), STATE::kReady) << "Flush calls no handler";
  Of().Send("a5b1dFB");
  Of().Flush();
  EXPECT_EQ(Of().Unsent(), 0U);
  ASSERT_TRUE(UntilState(STATE::kFailed));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kLost);
}

TEST_F(Session, ConnectsAgainAfterALossWhereItGoesOnForGood) {
  m_settings.givesUp = false;
  BeReady();
  Of().Send("never written");
  m_daemon.Refuse();
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kPausing));
  EXPECT_EQ(Of().Trouble(), TROUBLE::kLost);
  EXPECT_EQ(Of().Deadline(), m_now + milliseconds(100));
  EXPECT_EQ(m_overs, 1);
  m_daemon.Listen();
  Pass(milliseconds(100));
  ASSERT_TRUE(UntilState(STATE::kWaiting));
  m_daemon.Accept();
  m_daemon.Greet(INTERFACE::kIo);
  ASSERT_TRUE(UntilState(STATE::kReady));
  EXPECT_TRUE(m_daemon.HearsNothing());
}

TEST_F(Session, EndsAtOnce) {
  BeReady();
  Of().End();
  EXPECT_EQ(Of().State(), STATE::kIdle);
  EXPECT_EQ(Of().Descriptor(), -1);
  EXPECT_EQ(m_daemon.Hear(), "");
  EXPECT_EQ(m_overs, 1);
  EXPECT_EQ(m_states.back(), STATE::kIdle);
  Of().End();
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, HasNoTroubleWhenItIsEnded) {
  BeginToWait();
  Pass(seconds(9));
  ASSERT_EQ(Of().Trouble(), TROUBLE::kTaken);
  Of().End();
  EXPECT_EQ(Of().Trouble(), TROUBLE::kNone);
  EXPECT_EQ(Of().State(), STATE::kIdle);
  EXPECT_EQ(m_overs, 1) << "that was over when it failed";
}

TEST_F(Session, FinishesWhenTheDaemonHasReadEverythingAndClosed) {
  BeReady();
  Of().Send("a5b1dFB");
  Of().Finish(m_now);
  EXPECT_EQ(Of().State(), STATE::kFinishing);
  EXPECT_FALSE(Of().Send("a5b1dFF"));
  EXPECT_EQ(m_daemon.Hear(9), "a5b1dFB\r\n");
  EXPECT_EQ(m_daemon.Hear(), "") << "it is not told that nothing more comes";
  m_daemon.Say("for nobody\r\n\r");
  ASSERT_TRUE(HasCome(1));
  Of().Handle(m_now);
  EXPECT_EQ(Of().State(), STATE::kFinishing);
  EXPECT_EQ(m_overs, 0);
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kIdle));
  EXPECT_EQ(m_lines, LINES{});
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, WritesAllBeforeItSaysThatNothingMoreComes) {
  BeReady();
  const std::string line(99998, 'x');
  std::size_t taken = 0;
  while (Of().Send(line)) {
    taken += line.size() + 2;
    Of().Flush();
  }
  Of().Finish(m_now);
  EXPECT_GT(Of().Unsent(), 0U);
  std::size_t heard = 0;
  for (std::size_t size = 1; size > 0; heard += size) {
    Of().Handle(m_now);
    size = m_daemon.Hear().size();
  }
  EXPECT_EQ(heard, taken);
}

TEST_F(Session, FinishesByItselfWhenTheDaemonDoesNot) {
  BeReady();
  Of().Finish(m_now, seconds(2));
  EXPECT_EQ(Of().Deadline(), m_now + seconds(2));
  Pass(milliseconds(1999));
  EXPECT_EQ(Of().State(), STATE::kFinishing);
  Pass(milliseconds(1));
  EXPECT_EQ(Of().State(), STATE::kIdle);
}

TEST_F(Session, FinishesEachOfItsConnections) {
  for (int i = 0; i < 2; ++i) {
    BeReady();
    Of().Finish(m_now);
    EXPECT_EQ(m_daemon.Hear(), "");
    m_daemon.Leave();
    ASSERT_TRUE(UntilState(STATE::kIdle));
  }
}

TEST_F(Session, FinishesAtOnceWhereItIsNotReady) {
  BeginToWait();
  Of().Finish(m_now);
  EXPECT_EQ(Of().State(), STATE::kIdle);
  EXPECT_EQ(m_overs, 1);
}

TEST_F(Session, MayBeFinishedInsideALineAndThenDeliversNoOther) {
  BeReady();
  m_inLine = [&] { Of().Finish(m_now); };
  m_daemon.Say("one\r\n\rtwo\r\n\r");
  ASSERT_TRUE(UntilState(STATE::kFinishing));
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(STATE::kIdle));
  EXPECT_EQ(m_lines, LINES{"one"});
}

}  // namespace
}  // namespace client
