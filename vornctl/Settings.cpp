#include "vornctl/Settings.h"

#include "vornctl/ExitStatus.h"
#include "vornctl/Notation.h"

#include <toml++/toml.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace ctl {

namespace {

using client::INTERFACE;

constexpr const char* kSystemFile = "/etc/vorn/vornctl.toml";
constexpr double kLongestSeconds = 1'000'000;
constexpr int kLargestPort = 65535;

struct INTERFACE_KEY {
  const char* key;
  INTERFACE interface;
};
constexpr INTERFACE_KEY kInterfaceKeys[] = {
    {"cae", INTERFACE::kCae}, {"io", INTERFACE::kIo}, {"mon", INTERFACE::kMon}};

std::chrono::milliseconds MillisecondsOf(double seconds, const std::string& what) {
  if (!(seconds >= 0) || seconds > kLongestSeconds) {
    throw FAILURE(EXIT_STATUS::kUsage, what + " is in seconds, 0 to 1000000");
  }
  constexpr double kPerSecond = 1000;
  return std::chrono::milliseconds(std::llround(seconds * kPerSecond));
}

std::string NoChannel(const std::string& name, const std::string& place) {
  return "names." + name + ": '" + place + "' is no channel: " + kPlaceForms;
}

/// The reader of one file: its members know the line of what they refuse.
class SETTINGS_READER {
 public:
  SETTINGS_READER(SETTINGS& settings, std::string origin)
      : m_settings(settings), m_origin(std::move(origin)) {}

  void Read(const toml::table& file) {
    for (const auto& [key, node] : file) {
      const std::string name(key.str());
      if (name == "host") {
        m_settings.host = Text(node, name);
      } else if (name == "timeout") {
        m_settings.timeout = Seconds(node, name);
      } else if (name == "wait") {
        m_settings.wait = Seconds(node, name);
        m_settings.isWaitGiven = true;
      } else if (name == "ports") {
        ForEachInterface(node, name, [&](INTERFACE interface, const toml::node& value) {
          m_settings.ports[interface] = Port(value, name);
        });
      } else if (name == "separators") {
        ForEachInterface(node, name, [&](INTERFACE interface, const toml::node& value) {
          m_settings.separators[interface] = Separators(value, name);
        });
      } else if (name == "cards") {
        ReadCards(Table(node, name));
      } else if (name == "names") {
        ReadNames(Table(node, name));
      } else {
        Refuse(node, "no setting '" + name +
                         "': host, timeout, wait, ports, separators, cards and names are known");
      }
    }
  }

 private:
  [[noreturn]] void Refuse(const toml::node& node, const std::string& why) const {
    throw FAILURE(EXIT_STATUS::kUsage,
                  m_origin + ":" + std::to_string(node.source().begin.line) + ": " + why);
  }

  std::string Text(const toml::node& node, const std::string& name) const {
    const auto text = node.value<std::string>();
    if (!text) {
      Refuse(node, name + " is a text in quotes");
    }
    return *text;
  }

  std::chrono::milliseconds Seconds(const toml::node& node, const std::string& name) const {
    const auto seconds = node.value<double>();
    if (!seconds || !(*seconds >= 0) || *seconds > kLongestSeconds) {
      Refuse(node, name + " is in seconds, 0 to 1000000");
    }
    return MillisecondsOf(*seconds, name);
  }

  const toml::table& Table(const toml::node& node, const std::string& name) const {
    const toml::table* table = node.as_table();
    if (table == nullptr) {
      Refuse(node, name + " is a table: [" + name + "]");
    }
    return *table;
  }

  int Port(const toml::node& node, const std::string& name) const {
    const auto port = node.value<std::int64_t>();
    if (!port || *port < 1 || *port > kLargestPort) {
      Refuse(node, name + ": a port is a number, 1 to 65535");
    }
    return static_cast<int>(*port);
  }

  client::SEPARATORS Separators(const toml::node& node, const std::string& name) const {
    client::SEPARATORS separators;
    for (const auto& [key, value] : Table(node, name)) {
      if (key == "inp") {
        separators.inp = Text(value, "inp");
      } else if (key == "out") {
        separators.out = Text(value, "out");
      } else {
        Refuse(value, "an interface has the separators inp and out");
      }
    }
    return separators;
  }

  template <class TAKE>
  void ForEachInterface(const toml::node& node, const std::string& name, const TAKE& take) const {
    for (const auto& [key, value] : Table(node, name)) {
      const INTERFACE_KEY* found = nullptr;
      for (const INTERFACE_KEY& row : kInterfaceKeys) {
        if (key == row.key) {
          found = &row;
        }
      }
      if (found == nullptr) {
        Refuse(value, name + " has cae, io and mon");
      }
      take(found->interface, value);
    }
  }

  void ReadCards(const toml::table& table) {
    for (const auto& [key, value] : table) {
      const std::string address(key.str());
      const int number = address.size() == 1 ? client::ReadDigit(address.front()) : -1;
      if (number < 0) {
        Refuse(value, "cards: '" + address + "' is no address, 0 to F");
      }
      const std::string word = Text(value, "cards." + address);
      const client::CARD_TYPE* type = client::FindTypeByWord(word);
      if (type == nullptr) {
        Refuse(value, "no card type '" + word + "': " + TypeWords());
      }
      m_settings.cards[number] = type->kind;
    }
  }

  void ReadNames(const toml::table& table) {
    for (const auto& [key, value] : table) {
      const std::string name(key.str());
      if (!IsName(name)) {
        Refuse(value, "'" + name +
                          "' cannot be a name: letters, digits, - and _, a letter first, and more "
                          "than one of them");
      }
      const std::string place = Text(value, "names." + name);
      if (!ReadPlace(place)) {
        Refuse(value, NoChannel(name, place));
      }
      m_settings.names[name] = place;
    }
  }

  SETTINGS& m_settings;
  const std::string m_origin;
};

/// Nothing where the file is not there. Throws where it is and cannot be read.
std::optional<std::string> ReadFile(const std::string& path) {
  const std::ifstream file(path);
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return std::nullopt;
    }
    throw FAILURE(EXIT_STATUS::kUsage, path + ": " + std::strerror(errno));
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string UserFile() {
  const char* folder = std::getenv("XDG_CONFIG_HOME");
  if (folder != nullptr && *folder == '/') {
    return std::string(folder) + "/vornctl.toml";
  }
  const char* home = std::getenv("HOME");
  return home == nullptr || *home == '\0' ? std::string()
                                          : std::string(home) + "/.config/vornctl.toml";
}

void ReadIfThere(SETTINGS& settings, const std::string& path) {
  if (path.empty()) {
    return;
  }
  if (const auto text = ReadFile(path)) {
    ReadSettingsText(settings, *text, path);
  }
}

/// HOST, or HOST:PORT: CAE's port, those of IO and MON are the two behind it.
void TakeHost(SETTINGS& settings, const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (text.find(':') != colon) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + text + "': vorn listens on IPv4 addresses only");
  }
  settings.host = text.substr(0, colon);
  if (settings.host.empty()) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + text + "' is no host: HOST or HOST:PORT");
  }
  if (colon == std::string::npos) {
    return;
  }
  const std::string digits = text.substr(colon + 1);
  constexpr std::size_t kMostDigits = 5;
  int port = 0;
  if (!digits.empty() && digits.size() <= kMostDigits &&
      digits.find_first_not_of("0123456789") == std::string::npos) {
    port = std::stoi(digits);
  }
  if (port < 1 || port > kLargestPort - 2) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + text + "' is no host: behind the : stands CAE's port");
  }
  settings.ports = {
      {INTERFACE::kCae, port}, {INTERFACE::kIo, port + 1}, {INTERFACE::kMon, port + 2}};
}

void TakeEnvironment(SETTINGS& settings) {
  const char* host = std::getenv("VORNCTL_HOST");
  if (host != nullptr && *host != '\0') {
    TakeHost(settings, host);
  }
  const char* timeout = std::getenv("VORNCTL_TIMEOUT");
  if (timeout != nullptr && *timeout != '\0') {
    char* end = nullptr;
    const double seconds = std::strtod(timeout, &end);
    settings.timeout = MillisecondsOf(*end == '\0' ? seconds : -1, "VORNCTL_TIMEOUT");
  }
}

}  // namespace

void ReadSettingsText(SETTINGS& settings, const std::string& text, const std::string& origin) {
  toml::table file;
  try {
    file = toml::parse(text, origin);
  } catch (const toml::parse_error& error) {
    throw FAILURE(EXIT_STATUS::kUsage, origin + ":" + std::to_string(error.source().begin.line) +
                                           ": " + std::string(error.description()));
  }
  SETTINGS_READER(settings, origin).Read(file);
}

SETTINGS ReadSettings(const SETTINGS_OPTIONS& options) {
  SETTINGS settings;
  for (const INTERFACE_KEY& row : kInterfaceKeys) {
    settings.ports[row.interface] = client::DefaultPort(row.interface);
    settings.separators[row.interface] = {};
  }
  if (options.file) {
    const auto text = ReadFile(*options.file);
    if (!text) {
      throw FAILURE(EXIT_STATUS::kUsage, *options.file + ": " + std::strerror(ENOENT));
    }
    ReadSettingsText(settings, *text, *options.file);
  } else {
    ReadIfThere(settings, kSystemFile);
    ReadIfThere(settings, UserFile());
  }
  TakeEnvironment(settings);
  if (options.host) {
    TakeHost(settings, *options.host);
  }
  for (const auto& [interface, port] : options.ports) {
    settings.ports[interface] = port;
  }
  if (options.timeout) {
    settings.timeout = MillisecondsOf(*options.timeout, "--timeout");
  }
  if (options.wait) {
    settings.wait = MillisecondsOf(*options.wait, "--wait");
    settings.isWaitGiven = true;
  }
  return settings;
}

}  // namespace ctl
