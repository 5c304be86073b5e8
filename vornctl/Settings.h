#pragma once

#include "client/Cards.h"
#include "client/Session.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace ctl {

/// Where the daemon is, how it is configured, and what its user calls his cards and channels. Read
/// once, before the first command; then only looked at.
struct SETTINGS {
  using CHANNELS = std::map<std::string, std::string>;

  std::string host = "127.0.0.1";
  std::map<client::INTERFACE, int> ports;
  std::map<client::INTERFACE, client::SEPARATORS> separators;
  std::chrono::milliseconds timeout{10'000};  ///< for an answer
  /// For an interface: the daemon's pauses and some more.
  std::chrono::milliseconds wait{9'000};
  /// The user has said how long: then it is tried so long even where there seems to be no daemon.
  bool isWaitGiven = false;
  /// The cards of slots that need not be asked for.
  std::map<int, client::CARD_KIND> cards;
  /// What a name stands for, in the notation of channels: "lamp" is "5.10".
  CHANNELS names;
};

/// What the command line says, before anything else; nothing where it says nothing.
struct SETTINGS_OPTIONS {
  std::optional<std::string> file;  ///< in place of the two below
  std::optional<std::string>
      host;  ///< HOST or HOST:PORT, the port being CAE's, IO's and MON's follow
  std::map<client::INTERFACE, int> ports;
  std::optional<double> timeout;  ///< seconds
  std::optional<double> wait;     ///< seconds
};

/// Options before the environment (VORNCTL_HOST, VORNCTL_TIMEOUT) before
/// $XDG_CONFIG_HOME/vornctl.toml
/// (~/.config without that) before /etc/vorn/vornctl.toml; each for itself. Throws FAILURE, kUsage,
/// for a file that is named and not there, for one that is no TOML, and for every key or value in
/// it that is not known, with file and line.
SETTINGS ReadSettings(const SETTINGS_OPTIONS& options);

/// The same for the text of one file; `origin` is its name in messages.
void ReadSettingsText(SETTINGS& settings, const std::string& text, const std::string& origin);

}  // namespace ctl
