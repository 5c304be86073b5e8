#include "vornctl/commands/Commands.h"

#include <algorithm>

namespace ctl {

const std::vector<COMMAND>& CommandTable() {
  // clang-format off
  static const std::vector<COMMAND> kTable = {
      // name       what follows                     what it does                                                  use              sends  completed by        words
      {"cards",     "[--rescan]",                    "list the cards",                                             USE::kAnywhere,  false, WORDS::kNone,       "",    DeclareCards,   RunCards},
      {"get",       "WHAT...",                       "the last state of inputs",                                   USE::kAnywhere,  false, WORDS::kInputs,     "all", DeclareGet,     RunGet},
      {"set",       "WHAT=VALUE... [--others HEX]",  "set outputs, all checked before the first is sent",          USE::kAnywhere,  true,  WORDS::kOutputs,    "",    DeclareSet,     RunSet},
      {"pulse",     "WHAT [MS] [--others HEX]",      "switch a digital output on and, MS milliseconds later, off", USE::kAnywhere,  false, WORDS::kOutputs,    "",    DeclarePulse,   RunPulse},
      {"stop",      "[CARD]",                        "bring motors to rest",                                       USE::kAnywhere,  true,  WORDS::kCards,      "",    DeclareStop,    RunStop},
      {"watch",     "[WHAT...]",                     "a line for each change of an input",                         USE::kAnywhere,  false, WORDS::kInputs,     "all", DeclareWatch,   RunWatch},
      {"wait",      "WHAT=VALUE [--for S]",          "wait until an input has that value",                         USE::kAnywhere,  false, WORDS::kInputsIs,   "",    DeclareWait,    RunWait},
      {"lcd",       "CARD TEXT [--at COL,ROW]",      "show a text; or clear, light on, cursor off, blink on ...",  USE::kAnywhere,  true,  WORDS::kLcdCards,   "clear light cursor blink on off", DeclareLcd, RunLcd},
      {"ir",        "CARD HEX... | CARD --text TEXT", "send a stream by infrared",                                 USE::kAnywhere,  true,  WORDS::kIrCards,    "",    DeclareIr,      RunIr},
      {"param",     "CARD [NAME[=VALUE]]...",        "what a card keeps: show or set it",                          USE::kAnywhere,  false, WORDS::kParameters, "",    DeclareParam,   RunParam},
      {"store",     "CARD",                          "have the card keep its mask, positions or silent ranges",    USE::kAnywhere,  false, WORDS::kCards,      "",    DeclareCard,    RunStore},
      {"recall",    "CARD",                          "move the servos to their stored positions",                  USE::kAnywhere,  false, WORDS::kCards,      "",    DeclareCard,    RunRecall},
      {"reboot",    "CARD",                          "reboot a card",                                              USE::kAnywhere,  false, WORDS::kCards,      "",    DeclareCard,    RunReboot},
      {"poll",      "[on|off [CARD]]",               "show polling, or switch it on or off",                       USE::kAnywhere,  false, WORDS::kCards,      "on off", DeclarePoll, RunPoll},
      {"speed",     "N",                             "how fast a busy vorn works, 1 to 100, until its next start", USE::kAnywhere,  false, WORDS::kNone,       "",    DeclareSpeed,   RunSpeed},
      {"version",   "",                              "the daemon's version",                                       USE::kAnywhere,  false, WORDS::kNone,       "",    DeclareVersion, RunVersion},
      {"status",    "[--only NAME,...]",             "which interfaces answer and which are taken",                USE::kAnywhere,  false, WORDS::kNone,       "",    DeclareStatus,  RunStatus},
      {"io",        "LINE...",                       "IO lines as typed",                                          USE::kAnywhere,  true,  WORDS::kNone,       "",    DeclareLines,   RunIo},
      {"cae",       "LINE...",                       "operator's commands as typed, with their answers",           USE::kAnywhere,  false, WORDS::kNone,       "",    DeclareLines,   RunCae},
      {"sleep",     "SECONDS",                       "wait",                                                       USE::kInSeries,  false, WORDS::kNone,       "",    DeclareSleep,   RunSleep},
      {"batch",     "[FILE] [--keep-going]",         "these commands, one a line, on one connection",              USE::kAlone,     false, WORDS::kFiles,      "",    DeclareBatch,   nullptr},
      {"shell",     "",                              "a prompt for these commands",                                USE::kAlone,     false, WORDS::kNone,       "",    DeclareVersion, nullptr},
      {"completion", "bash|zsh",                     "completion for a shell",                                     USE::kAlone,     false, WORDS::kFixed,      "bash zsh", DeclareCompletion, nullptr},
  };
  // clang-format on
  return kTable;
}

const COMMAND* FindCommand(const std::string& name) {
  const std::vector<COMMAND>& table = CommandTable();
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const COMMAND& command) { return command.name == name; });
  return found == table.end() ? nullptr : &*found;
}

}  // namespace ctl
