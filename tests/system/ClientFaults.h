#pragma once

#include "tests/support/Text.h"
#include "tests/system/LoadFixture.h"

#include <chrono>
#include <string>
#include <vector>

/// For a client that is given up: half a minute of the daemon's, and then some.
constexpr std::chrono::milliseconds kMinute{60'000};

/// A flood takes whole cores: a reply of the rack can be late for it, which costs the link for a
/// moment.
inline std::vector<std::string> LateReply() {
  return {"[INF] comm timeout /dev/ttyUSB", "[INF] try to catch hardware on /dev/ttyUSB",
          "[INF] hardware found on /dev/ttyUSB"};
}
inline std::vector<std::string> LateReplyOr(const std::string& line) {
  std::vector<std::string> lines = LateReply();
  lines.push_back(line);
  return lines;
}

/// Clients that vanish, stop, flood or send what no program sends: the other two and the bus do not
/// notice, and the next client finds an ordinary daemon.
class ClientFaults : public LOAD_FIXTURE {
 protected:
  /// The text is made of input lines, and copies of this command, and of nothing else; what it ends
  /// with may be cut off. Where no line may be missing, they count up by one.
  void ExpectStream(const std::string& text, bool mayMissLines,
                    const std::string& command = "") const {
    std::vector<std::string> lines = Messages(text, IoLine(""));
    std::erase(lines, command);
    const INPUT_GAPS found = FindInputGaps(lines);
    EXPECT_FALSE(found.torn) << support::Visible(*found.torn);
    EXPECT_TRUE(mayMissLines || found.missing == 0) << found.missing;
  }

  /// What was refused goes to CAE, as one message each.
  std::string Refused(const std::string& command) const {
    return CaeReply({"COE:Illegal command -> " + command});
  }
};
