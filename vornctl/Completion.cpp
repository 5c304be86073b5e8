#include "vornctl/Completion.h"

#include "vornctl/Interpreter.h"
#include "vornctl/Notation.h"
#include "vornctl/Program.h"
#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>

namespace ctl {

namespace {

using client::CARD_KIND;
using client::CARD_TYPE;

using WORD_LIST = std::vector<std::string>;

WORD_LIST Split(const std::string& text) {
  std::istringstream words(text);
  WORD_LIST list;
  for (std::string word; words >> word;) {
    list.push_back(word);
  }
  return list;
}

std::string Joined(const WORD_LIST& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

/// "--rescan", "--others", ...
WORD_LIST OptionsOf(const CLI::App& app) {
  WORD_LIST options;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      options.push_back("--" + name);
    }
  }
  return options;
}

WORD_LIST OptionsOf(const COMMAND& command) {
  CLI::App app;
  ARGUMENTS arguments;
  command.declare(app, arguments);
  return OptionsOf(app);
}

WORD_LIST CommandNames(USE use) {
  WORD_LIST names;
  for (const COMMAND& command : CommandTable()) {
    if (command.use == USE::kAnywhere || command.use == use) {
      names.emplace_back(command.name);
    }
  }
  return names;
}

/// Whether a place stands before an = there, and a value behind it.
bool TakesValues(const COMMAND& command) {
  return std::string_view(command.form).starts_with("WHAT=");
}

class CANDIDATES {
 public:
  explicit CANDIDATES(const COMPLETION_FACTS& facts) : m_facts(facts) {}

  WORD_LIST For(const COMMAND& command, const WORD_LIST& words, const std::string& last) {
    if (command.words != WORDS::kLcdCards || words.size() > 1) {
      Add(Split(command.fixedWords));
    }
    if (last.starts_with('-')) {
      Add(OptionsOf(command));
      return std::move(m_words);
    }
    switch (command.words) {
      case WORDS::kInputs:
        AddPlaces(last, "", [](const CARD_TYPE& type) { return type.inputBlocks > 0; });
        Add(m_facts.names);
        break;
      case WORDS::kInputsIs:
        AddPlaces(last, "=", [](const CARD_TYPE& type) { return type.inputBlocks > 0; });
        AddNames("=");
        break;
      case WORDS::kOutputs: {
        const char* const end = TakesValues(command) ? "=" : "";
        AddPlaces(last, end, [](const CARD_TYPE& type) { return type.outputBlocks > 0; });
        AddNames(end);
        break;
      }
      case WORDS::kCards:
        AddCards(words, [](const CARD_TYPE&) { return true; });
        break;
      case WORDS::kLcdCards:
        AddCards(words, [](const CARD_TYPE& type) { return type.kind == CARD_KIND::kLcd; });
        break;
      case WORDS::kIrCards:
        AddCards(words, [](const CARD_TYPE& type) { return type.kind == CARD_KIND::kIr; });
        break;
      case WORDS::kParameters:
        AddParameters(words);
        break;
      case WORDS::kNone:
      case WORDS::kFixed:
      case WORDS::kFiles:
        break;
    }
    return std::move(m_words);
  }

 private:
  void Add(const WORD_LIST& words) { m_words.insert(m_words.end(), words.begin(), words.end()); }

  /// Its values are on and off; a name may be one of those.
  bool IsSwitched(const std::string& text) const {
    const auto place = ReadPlace(text);
    if (!place) {
      return IsName(text);
    }
    const auto card = m_facts.cards.find(place->address);
    const auto form =
        card == m_facts.cards.end() ? client::VALUE_FORM::kNone : client::TypeOf(card->second).form;
    return place->kind == PLACE_KIND::kChannel &&
           (form == client::VALUE_FORM::kActiveLow || form == client::VALUE_FORM::kActiveHigh);
  }

  void AddNames(const std::string& end) {
    for (const std::string& name : m_facts.names) {
      m_words.push_back(name + end);
    }
  }

  /// The channels of the card that is being named, else the cards; behind the = the values.
  template <class CHOOSE>
  void AddPlaces(const std::string& last, const std::string& end, const CHOOSE& choose) {
    const std::size_t equals = last.find('=');
    if (equals != std::string::npos) {
      if (IsSwitched(last.substr(0, equals))) {
        Add({last.substr(0, equals + 1) + "on", last.substr(0, equals + 1) + "off"});
      }
      return;
    }
    for (const auto& [address, kind] : m_facts.cards) {
      const CARD_TYPE& type = client::TypeOf(kind);
      if (!choose(type)) {
        continue;
      }
      const std::string card = std::string(1, client::AddressDigit(address)) + ".";
      if (!last.starts_with(card)) {
        m_words.push_back(card);
        continue;
      }
      for (const PLACE& place : ChannelsOf(address, type)) {
        m_words.push_back(TextOf(place) + end);
      }
    }
  }

  /// Only the first word behind the command is a card.
  template <class CHOOSE>
  void AddCards(const WORD_LIST& words, const CHOOSE& choose) {
    if (words.size() > 1 && words.front() != "poll") {
      return;
    }
    for (const auto& [address, kind] : m_facts.cards) {
      if (choose(client::TypeOf(kind))) {
        m_words.emplace_back(1, client::AddressDigit(address));
      }
    }
  }

  void AddParameters(const WORD_LIST& words) {
    if (words.size() < 2) {
      AddCards(words, [](const CARD_TYPE& type) {
        return std::any_of(std::begin(client::kCardParameters), std::end(client::kCardParameters),
                           [&](const auto& row) { return row.kind == type.kind; });
      });
      return;
    }
    const auto place = ReadPlace(words[1]);
    const auto card = place ? m_facts.cards.find(place->address) : m_facts.cards.end();
    for (const client::CARD_PARAMETER& row : client::kCardParameters) {
      if (card == m_facts.cards.end() || row.kind != card->second) {
        continue;
      }
      for (int channel = 0; channel < row.channels; ++channel) {
        m_words.push_back(row.name + (row.channels > 1 ? std::to_string(channel) : ""));
      }
    }
  }

  const COMPLETION_FACTS& m_facts;
  WORD_LIST m_words;
};

}  // namespace

WORD_LIST Complete(const std::string& before, const COMPLETION_FACTS& facts) {
  WORD_LIST words = Split(before);
  const bool isNew = words.empty() || std::isspace(static_cast<unsigned char>(before.back())) != 0;
  const std::string last = isNew ? std::string() : words.back();
  if (!isNew) {
    words.pop_back();
  }
  WORD_LIST candidates;
  if (words.empty()) {
    candidates = CommandNames(USE::kInSeries);
    candidates.insert(candidates.end(), {"help", "exit"});
  } else if (words.front() == "help") {
    candidates = CommandNames(USE::kInSeries);
  } else if (const COMMAND* command = FindCommand(words.front())) {
    candidates = CANDIDATES(facts).For(*command, words, last);
  }
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                  [&](const std::string& word) { return !word.starts_with(last); }),
                   candidates.end());
  return candidates;
}

// Names come from the settings at the time of completion; nothing is asked of the daemon.

namespace {

bool TakesNames(const COMMAND& command) {
  return command.words == WORDS::kInputs || command.words == WORDS::kOutputs ||
         command.words == WORDS::kInputsIs;
}

/// For a shell, between single quotes.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char sign : text) {
    quoted += sign == '\'' ? "'\\''" : std::string(1, sign);
  }
  return quoted + "'";
}

}  // namespace

std::string BashCompletion() {
  std::string cases;
  for (const COMMAND& command : CommandTable()) {
    const std::string names = TakesValues(command)  ? " ${names:+$(printf '%s= ' $names)}"
                              : TakesNames(command) ? " $names"
                                                    : "";
    const WORD_LIST fixed = Split(command.fixedWords);
    cases += "    " + std::string(command.name) +
             (command.name == std::string("batch") ? "|run" : "") + ") words=\"" + Joined(fixed) +
             (fixed.empty() ? "" : " ") + Joined(OptionsOf(command)) + names + "\"";
    cases += command.words == WORDS::kFiles ? "; files=1 ;;\n" : " ;;\n";
  }
  return "# bash completion for vornctl\n"
         "_vornctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} command='' word words='' files='' names=''\n"
         "  # With = among the characters that divide words, what stands behind it is a word of "
         "its own.\n"
         "  if [[ $current == '=' || ${COMP_WORDS[COMP_CWORD - 1]} == '=' ]]; then\n"
         "    [[ $current == '=' ]] && current=''\n"
         "    mapfile -t COMPREPLY < <(compgen -W 'on off' -- \"$current\")\n"
         "    return\n"
         "  fi\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    case $word in\n"
         "      " +
         [] {
           const WORD_LIST names = CommandNames(USE::kAlone);
           std::string pattern;
           for (const std::string& name : names) {
             pattern += (pattern.empty() ? "" : "|") + name;
           }
           return pattern;
         }() +
         "|run)\n"
         "        command=$word\n"
         "        break\n"
         "        ;;\n"
         "    esac\n"
         "  done\n"
         "  case $command in get|set|pulse|watch|wait) names=$(vornctl completion names "
         "2>/dev/null) ;; esac\n"
         "  case $command in\n"
         "    '') words=\"" +
         Joined(CommandNames(USE::kAlone)) + " " + Joined(ProgramOptions()) + "\" ;;\n" + cases +
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" ${files:+-f} -- \"$current\")\n"
         "  if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; "
         "fi\n"
         "}\n"
         "complete -F _vornctl vornctl\n";
}

std::string ZshCompletion() {
  std::string commands;
  std::string cases;
  for (const COMMAND& command : CommandTable()) {
    commands += "    " + Quoted(std::string(command.name) + ":" + command.about) + "\n";
    cases += "    " + std::string(command.name) +
             (command.name == std::string("batch") ? "|run" : "") + ")";
    const std::string words = Joined(Split(command.fixedWords)) + " " + Joined(OptionsOf(command));
    if (words != " ") {
      cases += "\n      compadd -- " + words;
    }
    const std::string names = "-- ${(f)\"$(vornctl completion names 2>/dev/null)\"}";
    if (TakesValues(command)) {
      cases += "\n      if compset -P '*='; then compadd -- on off; else compadd -S '=' " + names +
               "; fi";
    } else if (TakesNames(command)) {
      cases += "\n      compadd " + names;
    } else if (command.words == WORDS::kFiles) {
      cases += "\n      _files";
    }
    cases += "\n      ;;\n";
  }
  return "#compdef vornctl\n"
         "_vornctl() {\n"
         "  local -a commands\n"
         "  commands=(\n" +
         commands +
         "  )\n"
         "  local command word\n"
         "  for word in ${words[2,CURRENT-1]}; do\n"
         "    if (( ${commands[(I)$word:*]} )) || [[ $word == run ]]; then command=$word; break; "
         "fi\n"
         "  done\n"
         "  case $command in\n"
         "    '')\n"
         "      _describe command commands\n"
         "      compadd -- " +
         Joined(ProgramOptions()) +
         "\n"
         "      ;;\n" +
         cases +
         "  esac\n"
         "}\n"
         "if [[ $funcstack[1] == _vornctl ]]; then _vornctl \"$@\"; else compdef _vornctl vornctl; "
         "fi\n";
}

}  // namespace ctl
