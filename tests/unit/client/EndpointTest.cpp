#include "client/Endpoint.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace client {
namespace {

TEST(Endpoint, OfANumberIsThatNumber) {
  const auto endpoints = Resolve("192.0.2.7", 5001);
  ASSERT_EQ(endpoints.size(), 1U);
  EXPECT_EQ(TextOf(endpoints[0]), "192.0.2.7:5001");
  EXPECT_EQ(PortOf(endpoints[0]), 5001);
}

TEST(Endpoint, OfANameAreItsIpv4Addresses) {
  const auto endpoints = Resolve("localhost", 5000);
  ASSERT_FALSE(endpoints.empty());
  EXPECT_EQ(TextOf(endpoints[0]).substr(0, 4), "127.");
}

TEST(Endpoint, ThatCannotBeFoundIsSaidWithTheReason) {
  try {
    Resolve("no name.invalid", 5000);
    FAIL() << "found";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).find("no name.invalid: "), 0U) << error.what();
    EXPECT_GT(std::string(error.what()).size(), std::string("no name.invalid: ").size());
  }
}

TEST(Endpoint, HasAPortThatThereIs) {
  EXPECT_THROW(Resolve("127.0.0.1", 0), std::runtime_error);
  EXPECT_THROW(Resolve("127.0.0.1", 65536), std::runtime_error);
  EXPECT_THROW(Resolve("127.0.0.1", -1), std::runtime_error);
  EXPECT_EQ(PortOf(Resolve("127.0.0.1", 65535).at(0)), 65535);
}

}  // namespace
}  // namespace client
