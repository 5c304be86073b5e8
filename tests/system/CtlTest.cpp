#include "tests/system/CtlTest.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

void PrintTo(const CTL_RESULT& result, std::ostream* stream) {
  *stream << "status " << result.status << "\n--- standard output\n"
          << result.out << "--- standard error\n"
          << result.error;
}

namespace {

/// Connections to a port that nobody has accepted yet.
long ClientsInQueue(int port) {
  constexpr int kHexadecimal = 16;
  std::istringstream table(support::ReadFile("/proc/net/tcp"));
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string number;
    std::string here;
    std::string there;
    std::string state;
    std::string queues;
    fields >> number >> here >> there >> state >> queues;
    const std::size_t colon = here.find(':');
    const std::size_t middle = queues.find(':');
    if (state == "0A" && colon != std::string::npos && middle != std::string::npos &&
        std::stol(here.substr(colon + 1), nullptr, kHexadecimal) == port) {
      return std::stol(queues.substr(middle + 1), nullptr, kHexadecimal);
    }
  }
  return 0;
}

}  // namespace

CTL_TEST::CTL_TEST() {
  for (support::INTERFACE* interface : {&config.io, &config.mon}) {
    interface->inpSeparator = interface->outSeparator = "\r\n";
  }
  config.autoDiscover = "TRUE";
  config.initPollState = "TRUE";
  std::filesystem::create_directory(Folder() + "/config");
  Settings();
}

void CTL_TEST::TearDown() {
  m_taken.clear();
  SYSTEM_TEST::TearDown();
}

void CTL_TEST::StartRack() {
  StartLinked();
  // Cards are polled once they have said what they are; the last of them after the others.
  for (const char* poll : {"03 20 03 02", "03 20 08 01", "03 20 0F 06"}) {
    if (!WaitForFrame(poll)) {
      throw std::runtime_error(std::string("no poll ") + poll);
    }
  }
}

std::string CTL_TEST::SettingsPath() const {
  return Folder() + "/config/vornctl.toml";
}

void CTL_TEST::Settings(const std::string& text) {
  support::WriteFile(SettingsPath(), "ports = { cae = " + std::to_string(config.cae.port) +
                                         ", io = " + std::to_string(config.io.port) + ", mon = " +
                                         std::to_string(config.mon.port) + " }\n" + text);
}

TCP_CLIENT& CTL_TEST::Take(const support::INTERFACE& interface) {
  const std::string& greeting = interface.name == "CAE"  ? kCaeGreeting
                                : interface.name == "IO" ? kIoGreeting
                                                         : kMonGreeting;
  return m_taken.insert_or_assign(interface.name, Connect(interface, greeting)).first->second;
}

void CTL_TEST::Release(const support::INTERFACE& interface) {
  m_taken.erase(interface.name);
}

void CTL_TEST::WaitUntilFree() {
  const auto isFree = [&](const support::INTERFACE& interface) {
    if (m_taken.contains(interface.name)) {
      return true;
    }
    // A client that has left before it was served is served first.
    const bool nobodyWaits = ClientsInQueue(interface.port) == 0;
    const LINES lines = log.LinesWith(" " + interface.name + " interface");
    return nobodyWaits && !lines.empty() && lines.back() == Waiting(interface.name);
  };
  if (!support::WaitUntil([&] {
        return !daemon.Running() || (isFree(config.cae) && isFree(config.io) && isFree(config.mon));
      })) {
    throw std::runtime_error("an interface does not wait for a client again");
  }
}

CTL_START CTL_TEST::With(CTL_START start) const {
  start.environment.emplace("HOME", Folder());
  start.environment.emplace("XDG_CONFIG_HOME", Folder() + "/config");
  start.environment.emplace("XDG_STATE_HOME", Folder() + "/state");
  return start;
}

CTL_RESULT CTL_TEST::Run(const std::vector<std::string>& arguments, const std::string& input) {
  WaitUntilFree();
  CTL_PROCESS process(With({arguments, input}));
  const int status = process.WaitForEnd().value_or(-1);
  return {status, process.Out(), process.Error()};
}

std::string CTL_TEST::Out(const std::vector<std::string>& arguments, const std::string& input) {
  const CTL_RESULT result = Run(arguments, input);
  EXPECT_EQ(result.status, 0) << arguments.front();
  EXPECT_EQ(result.error, "") << arguments.front();
  return result.out;
}

std::vector<nlohmann::json> CTL_TEST::Json(const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {"--json"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<nlohmann::json> records;
  for (const std::string& line : support::Lines(Out(all))) {
    records.push_back(nlohmann::json::parse(line));
  }
  return records;
}

testing::AssertionResult CTL_TEST::Fails(const CTL_RESULT& result, int status,
                                         const std::string& text) const {
  const bool isOneLine = std::count(result.error.begin(), result.error.end(), '\n') == 1;
  if (result.status == status && result.out.empty() && isOneLine &&
      result.error.starts_with("vornctl: ") && result.error.find(text) != std::string::npos) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "expected status " << status << " and a line with '" << text
                                     << "', not " << testing::PrintToString(result);
}

CTL_TEST::LINES CTL_TEST::Commands(std::uint64_t after) {
  LINES frames = Frames(after);
  std::erase_if(frames, [](const std::string& frame) { return frame.starts_with("03 20 "); });
  return frames;
}

int CTL_TEST::Connections(const support::INTERFACE& interface) const {
  return static_cast<int>(
      log.LinesWith("[INF] client is connected on " + interface.name + " interface").size());
}
