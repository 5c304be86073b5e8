#include "client/CaeSession.h"
#include "tests/unit/client/FakeDaemon.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace client {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using RESULTS = std::vector<std::pair<std::string, OUTCOME>>;

constexpr const char* kVersion = "CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r";
constexpr const char* kPolling = "CIA: GLOBAL POLLING IS ENABLED\r\n\rPTI:0x3:ON\r\n\r>\r\n\r";
constexpr const char* kReport = "COE:Illegal command -> aElXX\r\n\r>\r\n\r";

/// An operator's session with a daemon of its own, at a time that moves only when a test says so.
class CaeSession : public testing::Test {
 protected:
  static SESSION_SETTINGS Settings(const FAKE_DAEMON& daemon, bool givesUp = true) {
    SESSION_SETTINGS settings;
    settings.endpoints = {daemon.Endpoint()};
    settings.givesUp = givesUp;
    return settings;
  }

  CaeSession() {
    m_session.OnRefusal([this](const REFUSAL& refusal) { m_refusals.push_back(refusal.line); });
    m_daemon.Listen();
  }

  template <class PREDICATE>
  bool Until(PREDICATE holds) {
    return HandleUntil(m_session, m_session.Connection(), m_now, holds);
  }
  bool UntilState(SESSION_STATE state) {
    return Until([&] { return m_session.Connection().State() == state; });
  }
  void BeReady() {
    m_session.Connection().Start(m_now);
    ASSERT_TRUE(UntilState(SESSION_STATE::kWaiting));
    m_daemon.Accept();
    m_daemon.Greet(INTERFACE::kCae);
    ASSERT_TRUE(UntilState(SESSION_STATE::kReady));
  }
  void Pass(CLOCK::duration time) {
    m_now += time;
    m_session.Handle(m_now);
  }
  /// Keeps what becomes of a request under a name.
  void Ask(const std::string& name, CAE_REQUEST request, CLOCK::duration limit = seconds(10)) {
    m_session.Ask(
        std::move(request),
        [this, name](const CAE_RESULT& result) {
          m_results.emplace_back(name, result.outcome);
          m_last = result;
        },
        limit);
  }
  bool UntilResults(std::size_t count) {
    return Until([&] { return m_results.size() >= count; });
  }
  /// The daemon says it, and the session has taken it: a report behind it proves that.
  bool SayAndWait(std::string_view text) {
    const std::size_t count = m_refusals.size();
    m_daemon.Say(std::string(text) + "COE:Illegal command -> mark\r\n\r>\r\n\r");
    const bool isTaken =
        Until([&] { return m_refusals.size() > count && m_refusals.back() == "mark"; });
    std::erase(m_refusals, "mark");
    return isTaken;
  }

  FAKE_DAEMON m_daemon;
  TIME m_now{std::chrono::hours(1)};
  CAE_SESSION m_session{Settings(m_daemon)};
  RESULTS m_results;
  CAE_RESULT m_last;
  std::vector<std::string> m_refusals;
};

TEST_F(CaeSession, SendsARequestAndGivesItsAnswer) {
  BeReady();
  Ask("version", AskVersion());
  EXPECT_EQ(m_session.Waiting(), 1U);
  EXPECT_LE(m_session.Deadline(), m_now) << "the request waits for an event that need not come";
  m_session.Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "DRVVER\r\n");
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_results, (RESULTS{{"version", OUTCOME::kDone}}));
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.20");
  EXPECT_EQ(m_session.Waiting(), 0U);
  EXPECT_EQ(m_session.Deadline(), TIME::max());
}

TEST_F(CaeSession, KeepsARequestUntilItIsReady) {
  Ask("version", AskVersion());
  m_session.Handle(m_now);
  EXPECT_EQ(m_session.Deadline(), TIME::max());
  BeReady();
  m_session.Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "DRVVER\r\n");
}

TEST_F(CaeSession, SendsTheNextRequestAfterThePromptOfTheOneBefore) {
  BeReady();
  Ask("version", AskVersion());
  Ask("polling", AskPollState());
  m_session.Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "DRVVER\r\n");
  ASSERT_TRUE(SayAndWait("CIA: DRIVER VERSION 1.20\r\n\r"));
  EXPECT_TRUE(m_daemon.HearsNothing());
  m_daemon.Say(">\r\n\r");
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_daemon.Hear(), "POLLSTATE\r\n");
  m_daemon.Say(kPolling);
  ASSERT_TRUE(UntilResults(2));
  EXPECT_EQ(m_results, (RESULTS{{"version", OUTCOME::kDone}, {"polling", OUTCOME::kDone}}));
}

TEST_F(CaeSession, TakesNoReportForAnAnswerAndNoPromptOfItsForTheAnswers) {
  BeReady();
  Ask("polling", AskPollState());
  m_session.Handle(m_now);
  m_daemon.Say(kReport);
  m_daemon.Say("CIA: GLOBAL POLLING IS ENABLED\r\n\r");
  m_daemon.Say(kReport);
  m_daemon.Say("PTI:0x3:ON\r\n\r");
  m_daemon.Say(kReport);
  ASSERT_TRUE(SayAndWait(""));
  EXPECT_EQ(m_results, RESULTS{});
  EXPECT_EQ(m_refusals, std::vector<std::string>(3, "aElXX"));
  m_daemon.Say(">\r\n\r");
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_last.lines,
            (std::vector<std::string>{"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON"}));
}

TEST_F(CaeSession, TellsOfRefusalsWhenNothingIsAsked) {
  BeReady();
  m_daemon.Say(kReport);
  ASSERT_TRUE(Until([&] { return !m_refusals.empty(); }));
  EXPECT_EQ(m_refusals[0], "aElXX");
}

TEST_F(CaeSession, TakesNoPromptAloneForAnAnswer) {
  BeReady();
  Ask("typed", TypedCae("hello"));
  m_session.Handle(m_now);
  ASSERT_TRUE(SayAndWait(">\r\n\r"));
  EXPECT_EQ(m_results, RESULTS{});
  m_daemon.Say("CIE: UNKNOWN COMMAND \r\n>\r\n\r");
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_results[0].first, "typed");
}

TEST_F(CaeSession, TakesTheAnswerAfterAReportThatLostItsPrompt) {
  BeReady();
  Ask("version", AskVersion());
  m_session.Handle(m_now);
  m_daemon.Say("COE:Illegal command -> aElXX\r\n\r");
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_results[0].second, OUTCOME::kDone);
}

TEST_F(CaeSession, GivesATimeoutSoLongAfterTheRequestWasSent) {
  BeReady();
  Ask("first", AskVersion(), seconds(4));
  Pass(seconds(100));
  EXPECT_EQ(m_session.Deadline(), m_now + seconds(4));
  Pass(milliseconds(3999));
  EXPECT_EQ(m_results, RESULTS{});
  Pass(milliseconds(1));
  EXPECT_EQ(m_results, (RESULTS{{"first", OUTCOME::kTimeout}}));
  EXPECT_EQ(m_session.Waiting(), 0U);
}

TEST_F(CaeSession, SkipsALateAnswerAndThenSendsTheNextRequest) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  Ask("next", AskVersion());
  m_session.Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "DRVVER\r\n");
  Pass(seconds(1));
  ASSERT_TRUE(SayAndWait("CIA: DRIVER VERSION 1.19\r\n\r"));
  EXPECT_TRUE(m_daemon.HearsNothing()) << "the late answer is not complete";
  m_daemon.Say(">\r\n\r");
  ASSERT_TRUE(Until([&] { return !m_daemon.HearsNothing(); }));
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilResults(2));
  EXPECT_EQ(m_results, (RESULTS{{"late", OUTCOME::kTimeout}, {"next", OUTCOME::kDone}}));
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.20");
}

TEST_F(CaeSession, SkipsTheRestOfAnAnswerThatHadBegunInTime) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  m_session.Handle(m_now);
  ASSERT_TRUE(SayAndWait("CIA: DRIVER VERSION 1.19\r\n\r"));
  Pass(seconds(1));
  Ask("next", AskVersion());
  m_daemon.Hear();
  m_daemon.Say(">\r\n\r");
  ASSERT_TRUE(Until([&] { return !m_daemon.HearsNothing(); }));
}

TEST_F(CaeSession, WaitsThreeSecondsForALateAnswer) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  Ask("next", AskVersion());
  m_session.Handle(m_now);
  m_daemon.Hear();
  Pass(seconds(1));
  EXPECT_EQ(m_session.Deadline(), m_now + seconds(3));
  Pass(milliseconds(2999));
  EXPECT_TRUE(m_daemon.HearsNothing());
  Pass(milliseconds(1));
  EXPECT_EQ(m_daemon.Hear(), "DRVVER\r\n");
}

TEST_F(CaeSession, TakesTheSecondAnswerWhereTheFirstWasTheLateOne) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  Ask("next", AskVersion());
  m_session.Handle(m_now);
  Pass(seconds(1));
  Pass(seconds(3));
  m_daemon.Say("CIA: DRIVER VERSION 1.19\r\n\r>\r\n\r");
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilResults(2));
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.20");
  // Now all is in step again.
  Ask("last", AskVersion());
  m_session.Handle(m_now);
  m_daemon.Say("CIA: DRIVER VERSION 1.21\r\n\r>\r\n\r");
  ASSERT_TRUE(UntilResults(3));
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.21");
}

TEST_F(CaeSession, TakesTheOnlyAnswerWhereTheLateOneDoesNotCome) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  Ask("next", AskVersion());
  m_session.Handle(m_now);
  Pass(seconds(1));
  Pass(seconds(3));
  ASSERT_TRUE(SayAndWait(kVersion));
  EXPECT_EQ(m_results.size(), 1U);
  EXPECT_EQ(m_session.Deadline(), m_now + seconds(3));
  Pass(seconds(3));
  ASSERT_EQ(m_results.size(), 2U);
  EXPECT_EQ(m_results[1].second, OUTCOME::kDone);
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.20");
}

TEST_F(CaeSession, GivesTheOnlyAnswerWhenTheConnectionIsLostBeforeAnother) {
  BeReady();
  Ask("late", AskVersion(), seconds(1));
  Ask("next", AskVersion());
  Ask("last", AskVersion());
  m_session.Handle(m_now);
  Pass(seconds(1));
  Pass(seconds(3));
  ASSERT_TRUE(SayAndWait(kVersion));
  m_daemon.Leave();
  ASSERT_TRUE(UntilResults(3));
  EXPECT_EQ(
      m_results,
      (RESULTS{{"late", OUTCOME::kTimeout}, {"next", OUTCOME::kDone}, {"last", OUTCOME::kLost}}));
}

TEST_F(CaeSession, NeedsNoConfirmationWhenTheLateAnswerWasOfAnotherCommand) {
  BeReady();
  Ask("late", AskPollState(), seconds(1));
  Ask("next", AskVersion());
  m_session.Handle(m_now);
  Pass(seconds(1));
  Pass(seconds(3));
  m_daemon.Say(kPolling);
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilResults(2));
  EXPECT_EQ(m_results[1], std::make_pair(std::string("next"), OUTCOME::kDone));
  EXPECT_EQ(std::get<std::string>(m_last.value), "1.20");
}

TEST_F(CaeSession, EndsWithTheFarewell) {
  BeReady();
  Ask("exit", EndCae());
  m_session.Handle(m_now);
  EXPECT_EQ(m_daemon.Hear(), "EXIT\r\n");
  m_daemon.Say("VORN: Bye Bye...\r\n\r");
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_results[0].second, OUTCOME::kDone);
  m_daemon.Leave();
  ASSERT_TRUE(UntilState(SESSION_STATE::kFailed));
  EXPECT_EQ(m_results.size(), 1U);
}

TEST_F(CaeSession, KnowsAnExitThatIsTyped) {
  BeReady();
  Ask("exit", TypedCae("EXIT"));
  m_session.Handle(m_now);
  m_daemon.Say("VORN: Bye Bye...\r\n\r");
  ASSERT_TRUE(UntilResults(1));
  EXPECT_EQ(m_results[0].second, OUTCOME::kDone);
}

TEST_F(CaeSession, LosesAllThatWaitsWithTheConnectionEachOnce) {
  BeReady();
  Ask("first", AskVersion());
  Ask("second", AskVersion());
  m_session.Handle(m_now);
  m_daemon.Leave();
  ASSERT_TRUE(UntilResults(2));
  EXPECT_EQ(m_results, (RESULTS{{"first", OUTCOME::kLost}, {"second", OUTCOME::kLost}}));
  Pass(seconds(100));
  EXPECT_EQ(m_results.size(), 2U);
}

TEST_F(CaeSession, LosesAllThatWaitsWhenItIsEnded) {
  BeReady();
  Ask("first", AskVersion());
  m_session.Handle(m_now);
  m_session.Connection().End();
  EXPECT_EQ(m_results, (RESULTS{{"first", OUTCOME::kLost}}));
}

TEST_F(CaeSession, LosesWhatIsAskedWhenNoConnectionHasCome) {
  m_session.Connection().Start(m_now);
  Ask("first", AskVersion());
  Pass(seconds(9));
  EXPECT_EQ(m_results, (RESULTS{{"first", OUTCOME::kLost}}));
  Ask("too late", AskVersion());
  EXPECT_LE(m_session.Deadline(), m_now);
  m_session.Handle(m_now);
  EXPECT_EQ(m_results.size(), 2U);
  EXPECT_EQ(m_session.Deadline(), TIME::max());
}

TEST_F(CaeSession, TakesRequestsInsideAResult) {
  BeReady();
  m_session.Ask(AskVersion(), [this](const CAE_RESULT&) { Ask("second", AskPollState()); });
  m_session.Handle(m_now);
  m_daemon.Hear();
  m_daemon.Say(kVersion);
  ASSERT_TRUE(Until([&] { return !m_daemon.HearsNothing(); }));
  EXPECT_EQ(m_daemon.Hear(), "POLLSTATE\r\n");
}

TEST_F(CaeSession, MayBeEndedInsideAResult) {
  BeReady();
  m_session.Ask(AskVersion(), [this](const CAE_RESULT&) { m_session.Connection().End(); });
  Ask("second", AskVersion());
  m_session.Handle(m_now);
  m_daemon.Say(kVersion);
  m_daemon.Say(kVersion);
  ASSERT_TRUE(UntilState(SESSION_STATE::kIdle));
  EXPECT_EQ(m_results, (RESULTS{{"second", OUTCOME::kLost}}));
}

TEST_F(CaeSession, NeedsNoHandler) {
  BeReady();
  m_session.Ask(AskVersion(), nullptr);
  m_session.OnRefusal(nullptr);
  m_session.Handle(m_now);
  m_daemon.Say(kReport);
  m_daemon.Say(kVersion);
  EXPECT_TRUE(Until([&] { return m_session.Waiting() == 0; }));
}

TEST(CaeSessionThatGoesOn, SendsWhatIsAskedAfterALossOnTheNextConnection) {
  FAKE_DAEMON daemon;
  daemon.Listen();
  SESSION_SETTINGS settings;
  settings.endpoints = {daemon.Endpoint()};
  settings.givesUp = false;
  CAE_SESSION session(settings);
  TIME now{std::chrono::hours(1)};
  const auto beReady = [&] {
    ASSERT_TRUE(HandleUntil(session, session.Connection(), now, [&] {
      return session.Connection().State() == SESSION_STATE::kWaiting;
    }));
    daemon.Accept();
    daemon.Greet(INTERFACE::kCae);
    ASSERT_TRUE(HandleUntil(session, session.Connection(), now,
                            [&] { return session.Connection().State() == SESSION_STATE::kReady; }));
  };
  session.Connection().Start(now);
  beReady();
  int lost = 0;
  session.Ask(AskVersion(), [&](const CAE_RESULT& result) {
    lost += result.outcome == OUTCOME::kLost ? 1 : 0;
    session.Ask(AskPollState(), nullptr);
  });
  session.Handle(now);
  daemon.Leave();
  ASSERT_TRUE(HandleUntil(session, session.Connection(), now, [&] { return lost == 1; }));
  EXPECT_EQ(session.Waiting(), 1U);
  now += seconds(1);
  beReady();
  session.Handle(now);
  EXPECT_EQ(daemon.Hear(), "POLLSTATE\r\n");
}

}  // namespace
}  // namespace client
