#pragma once

#include "client/Cards.h"

#include <map>
#include <string>
#include <vector>

namespace ctl {

/// What is known of the rack and of the user's names.
struct COMPLETION_FACTS {
  std::map<int, client::CARD_KIND> cards;
  std::vector<std::string> names;
};

/// The words, whole, with which the last word of a line may go on or end: commands, options, the
/// cards that are there and their channels, names, parameters, values. Only those that begin with
/// what stands there already.
std::vector<std::string> Complete(const std::string& before, const COMPLETION_FACTS& facts);

/// A script for bash or zsh, from the table of commands.
std::string BashCompletion();
std::string ZshCompletion();

}  // namespace ctl
