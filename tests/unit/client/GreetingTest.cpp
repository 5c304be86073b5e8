#include "client/Greeting.h"

#include <gtest/gtest.h>

#include <string>

namespace client {
namespace {

class GreetingSearch : public testing::TestWithParam<INTERFACE> {
 protected:
  std::string m_greeting{GreetingOf(GetParam())};
  GREETING_SEARCH m_search{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Interfaces, GreetingSearch, testing::ValuesIn(kInterfaces),
                         [](const auto& test) { return std::string(NameOf(test.param)); });

TEST_P(GreetingSearch, ReturnsNothingBeforeTheGreetingAndEverythingBehindIt) {
  EXPECT_EQ(m_search.Take("a3b0d40\r\n\r"), "");
  EXPECT_FALSE(m_search.Found());
  EXPECT_EQ(m_search.Take(m_greeting + "one\r\n\r"), "one\r\n\r");
  EXPECT_EQ(m_search.Found(), GetParam());
  EXPECT_EQ(m_search.Take("two\r\n\r"), "two\r\n\r");
}

TEST_P(GreetingSearch, FindsItInPieces) {
  std::string all;
  for (const char byte : "left over VORN " + m_greeting + "one\r\n\rV") {
    all += m_search.Take({&byte, 1});
  }
  EXPECT_EQ(all, "one\r\n\r");
  EXPECT_EQ(m_search.Take("alue"), "Value");
}

TEST_P(GreetingSearch, TakesOutAnotherThatWasMeantForAnEarlierClient) {
  EXPECT_EQ(m_search.Take(m_greeting + "one\r\n\r" + m_greeting + m_greeting + "two\r\n\r"),
            "one\r\n\rtwo\r\n\r");
  std::string all;
  for (const char byte : m_greeting + "three\r\n\r") {
    all += m_search.Take({&byte, 1});
  }
  EXPECT_EQ(all, "three\r\n\r");
}

TEST_P(GreetingSearch, SaysWhoseGreetingItIs) {
  for (const INTERFACE other : kInterfaces) {
    GREETING_SEARCH search(other);
    const std::string text = search.Take(m_greeting + "more");
    EXPECT_EQ(search.Found(), GetParam());
    EXPECT_EQ(text, other == GetParam() ? "more" : "");
  }
}

TEST_P(GreetingSearch, CountsWhatHasComeWithoutOne) {
  m_search.Take("12345");
  m_search.Take("VORN ");
  EXPECT_EQ(m_search.Skipped(), 10U);
  m_search.Clear();
  EXPECT_EQ(m_search.Skipped(), 0U);
  EXPECT_EQ(m_search.Take(m_greeting.substr(5)), "");
  EXPECT_FALSE(m_search.Found()) << "nothing of the connection before counts";
}

TEST(Greeting, IsWhatTheDaemonSendsToTheByte) {
  EXPECT_EQ(GreetingOf(INTERFACE::kCae),
            "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r");
  EXPECT_EQ(GreetingOf(INTERFACE::kIo), "VORN IO interface is ready\r\n\r");
  EXPECT_EQ(GreetingOf(INTERFACE::kMon), "VORN MON interface is ready\r\n\r");
}

TEST(Interface, HasItsNameAndThePortOfTheExample) {
  EXPECT_STREQ(NameOf(INTERFACE::kCae), "CAE");
  EXPECT_STREQ(NameOf(INTERFACE::kIo), "IO");
  EXPECT_STREQ(NameOf(INTERFACE::kMon), "MON");
  EXPECT_EQ(DefaultPort(INTERFACE::kCae), 5000);
  EXPECT_EQ(DefaultPort(INTERFACE::kIo), 5001);
  EXPECT_EQ(DefaultPort(INTERFACE::kMon), 5002);
}

TEST(GreetingSearchOfTwo, TheFirstCounts) {
  GREETING_SEARCH search(INTERFACE::kMon);
  search.Take(std::string(GreetingOf(INTERFACE::kIo)) + std::string(GreetingOf(INTERFACE::kMon)));
  EXPECT_EQ(search.Found(), INTERFACE::kIo);
}

}  // namespace
}  // namespace client
