#pragma once

#include "tests/system/CtlProcess.h"
#include "tests/system/SystemTest.h"

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

/// What a vornctl that has ended has left.
struct CTL_RESULT {
  int status = -1;  ///< of the exit; -1: it has not ended
  std::string out;
  std::string error;
};
/// For the print after a failure.
void PrintTo(const CTL_RESULT& result, std::ostream* stream);

/// A daemon with the rack of the examples, and the command line client, which finds it by a
/// settings file of its own. The separators are the daemon's usual ones, unless the test says
/// otherwise.
class CTL_TEST : public SYSTEM_TEST {
 protected:
  using LINES = std::vector<std::string>;

  CTL_TEST();
  void TearDown() override;

  /// The cards are known and polled, and no client is connected.
  void StartRack();

  /// Writes the settings file: where the daemon is, and the test's own text behind that.
  void Settings(const std::string& text = {});
  std::string SettingsPath() const;

  /// A client of the test's own, which has the interface until it is released.
  TCP_CLIENT& Take(const support::INTERFACE& interface);
  void Release(const support::INTERFACE& interface);

  /// Waits until each interface that the test has not taken waits for a client: it greets the next
  /// one at once.
  void WaitUntilFree();

  /// Runs it to its end, from interfaces that are free.
  CTL_RESULT Run(const std::vector<std::string>& arguments, const std::string& input = {});
  /// The same, expecting status 0 and no word on the standard error; what it wrote.
  std::string Out(const std::vector<std::string>& arguments, const std::string& input = {});
  /// The same with --json: its lines.
  std::vector<nlohmann::json> Json(const std::vector<std::string>& arguments);
  /// Only the environment, filled in, and started.
  CTL_START With(CTL_START start) const;

  /// Its status; its standard output is empty, and its standard error one line with this text.
  testing::AssertionResult Fails(const CTL_RESULT& result, int status,
                                 const std::string& text) const;

  /// Frames that set, ask or move something: all but handshakes and polls.
  LINES Commands(std::uint64_t after = 0);
  /// Clients that the interface has had since the start of the log.
  int Connections(const support::INTERFACE& interface) const;

 private:
  std::map<std::string, TCP_CLIENT> m_taken;
};
