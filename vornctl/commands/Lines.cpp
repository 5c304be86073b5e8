#include "client/IoLine.h"
#include "vornctl/Finally.h"
#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

// io and cae: lines as typed; and sleep.
namespace ctl {

namespace {

using client::INTERFACE;

/// It must be alone in its read, and ends the connection.
void EndIo(CONTEXT& context) {
  constexpr double kLongestS = 10;
  std::vector<std::string> answer;
  context.link.OnAnyLine([&](INTERFACE interface, const std::string& line) {
    if (interface == INTERFACE::kIo) {
      answer.push_back(line);
    }
  });
  const FINALLY silence([&] { context.link.OnAnyLine({}); });
  context.link.Send(std::string(client::kIoExit));
  const bool isOver = context.link.AwaitQuick(
      "vorn's farewell", [&] { return !context.link.IsReady(INTERFACE::kIo); },
      TimeAfter(kLongestS));
  context.link.ForgetUnsettled();
  if (!isOver) {
    throw FAILURE(EXIT_STATUS::kTimeout, "vorn has not ended the connection in time");
  }
  for (const std::string& line : answer) {
    context.output.PutText(line);
  }
  context.output.PutRecord({{"type", "answer"}, {"line", client::kIoExit}, {"lines", answer}});
}

}  // namespace

void DeclareLines(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("LINE", arguments.words, "LINE, as typed")->required();
}

void RunIo(CONTEXT& context, const ARGUMENTS& arguments) {
  std::vector<std::string> lines;
  lines.reserve(arguments.words.size());
  for (const std::string& word : arguments.words) {
    lines.push_back(Checked([&] { return client::TypedIoLine(word); }));
  }
  if (lines.back() != client::kIoExit || context.dryRun) {
    SendLines(context, lines);
    return;
  }
  lines.pop_back();
  OpenForSending(context);
  if (!lines.empty()) {
    SendLines(context, lines);
  }
  // It is EXIT only where it stands alone in what vorn reads at once.
  context.link.Settle();
  EndIo(context);
}

void RunCae(CONTEXT& context, const ARGUMENTS& arguments) {
  for (const std::string& word : arguments.words) {
    const client::CAE_REQUEST request = Checked([&] { return client::TypedCae(word); });
    if (context.dryRun) {
      Do(context, request);
      continue;
    }
    const client::CAE_RESULT result = context.link.AskAnything(request);
    for (const std::string& line : result.lines) {
      context.output.PutText(line);
    }
    if (context.output.IsJson()) {
      context.output.PutRecord({{"type", "answer"}, {"line", word}, {"lines", result.lines}});
    }
    // Whatever was typed, what was known of the cards may be no longer so.
    context.link.ForgetCards();
    context.blocks.clear();
    switch (result.outcome) {
      case client::OUTCOME::kDone:
        break;
      case client::OUTCOME::kRefused:
        throw FAILURE(EXIT_STATUS::kRefused, word + ": " + result.Text());
      case client::OUTCOME::kTimeout:
        throw FAILURE(EXIT_STATUS::kTimeout, word + ": no answer in time");
      case client::OUTCOME::kLost:
        throw FAILURE(EXIT_STATUS::kNotReached,
                      word + ": the connection was lost before the answer");
    }
  }
}

void DeclareSleep(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("SECONDS", arguments.forSeconds, "how long")
      ->required()
      ->check(CLI::Range(0.0, 1e8).description(""))
      ->type_name("SECONDS");
}

void RunSleep(CONTEXT& context, const ARGUMENTS& arguments) {
  if (!context.dryRun) {
    context.link.RunUntil([] { return false; }, TimeAfter(arguments.forSeconds));
  }
}

}  // namespace ctl
