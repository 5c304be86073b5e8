#include "vornctl/Interpreter.h"

#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace ctl {

namespace {

/// "Usage: vornctl set WHAT=VALUE... [OPTIONS]", with what follows the name as in the manual.
class COMMAND_HELP : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* app, std::string name) const override {
    const COMMAND* command = FindCommand(app->get_name());
    if (command == nullptr) {
      return CLI::Formatter::make_usage(app, name);
    }
    const std::string form = command->form;
    return "Usage: vornctl " + app->get_name() + (form.empty() ? "" : " " + form) + "\n";
  }

  /// What their form above leaves open.
  std::string make_positionals(const CLI::App* app) const override {
    std::string text;
    for (const CLI::Option* option : app->get_options()) {
      if (option->get_positional()) {
        text += "\n  " + option->get_description() + "\n";
      }
    }
    return text;
  }
};

}  // namespace

void AddCommands(CLI::App& app, ARGUMENTS& arguments, USE use) {
  const auto help = std::make_shared<COMMAND_HELP>();
  for (const COMMAND& command : CommandTable()) {
    if (command.use != USE::kAnywhere && command.use != use) {
      continue;
    }
    CLI::App* sub = app.add_subcommand(command.name, command.about);
    sub->formatter(help);
    command.declare(*sub, arguments);
  }
}

void Parse(CLI::App& app, ARGUMENTS& arguments, const std::vector<std::string>& words) {
  // The parser takes [a,b] for two words. What a line begins with never is this one.
  constexpr char kMark = '\x01';
  std::vector<std::string> marked;
  marked.reserve(words.size());
  for (const std::string& word : words) {
    marked.push_back(word.starts_with('[') ? kMark + word : word);
  }
  std::reverse(marked.begin(), marked.end());  // as the parser wants them
  app.parse(marked);
  for (std::string* text : {&arguments.at, &arguments.others, &arguments.text}) {
    text->erase(0, text->starts_with(kMark) ? 1 : 0);
  }
  for (std::string& word : arguments.words) {
    word.erase(0, word.starts_with(kMark) ? 1 : 0);
  }
}

std::string ExplainParseError(const CLI::ParseError& error, const CLI::App& app) {
  std::string text = error.what();
  const bool isOfWords = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                         dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr;
  const std::vector<CLI::App*> chosen = app.get_subcommands();
  if (isOfWords && !text.starts_with('-') && !chosen.empty()) {
    const COMMAND& command = *FindCommand(chosen.front()->get_name());
    return std::string(command.name) + " is used so: " + command.name + " " + command.form;
  }
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

INTERPRETER::INTERPRETER(CONTEXT& context, USE use)
    : m_context(context), m_app(std::make_unique<CLI::App>("", "vornctl")) {
  m_app->require_subcommand(1);
  AddCommands(*m_app, m_arguments, use);
}

INTERPRETER::~INTERPRETER() = default;

void INTERPRETER::Run(const std::vector<std::string>& words) {
  m_arguments = {};
  const auto isIt = [&](const CLI::App* command) { return command->check_name(words.front()); };
  const std::vector<CLI::App*> commands = m_app->get_subcommands({});
  if (!words.front().starts_with('-') && std::none_of(commands.begin(), commands.end(), isIt)) {
    throw FAILURE(EXIT_STATUS::kUsage, "no command '" + words.front() + "' here");
  }
  try {
    Parse(*m_app, m_arguments, words);
  } catch (const CLI::CallForHelp&) {
    const std::vector<CLI::App*> chosen = m_app->get_subcommands();
    std::string help = (chosen.empty() ? m_app.get() : chosen.front())->help();
    help.erase(help.find_last_not_of('\n') + 1);
    m_context.output.PutText(help);
    return;
  } catch (const CLI::ParseError& error) {
    throw FAILURE(EXIT_STATUS::kUsage, ExplainParseError(error, *m_app));
  }
  const COMMAND& command = *FindCommand(m_app->get_subcommands().front()->get_name());
  command.run(m_context, m_arguments);
}

}  // namespace ctl
