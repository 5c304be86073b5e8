#pragma once

#include "vornctl/commands/Command.h"

#include <vector>

/// Each command, in two functions: what may follow its name, and what it does. The table has them
/// all.
namespace ctl {

void DeclareCards(CLI::App& command, ARGUMENTS& arguments);
void RunCards(CONTEXT& context, const ARGUMENTS& arguments);
void DeclarePoll(CLI::App& command, ARGUMENTS& arguments);
void RunPoll(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareSpeed(CLI::App& command, ARGUMENTS& arguments);
void RunSpeed(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareVersion(CLI::App& command, ARGUMENTS& arguments);
void RunVersion(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareStatus(CLI::App& command, ARGUMENTS& arguments);
void RunStatus(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareGet(CLI::App& command, ARGUMENTS& arguments);
void RunGet(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareWatch(CLI::App& command, ARGUMENTS& arguments);
void RunWatch(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareWait(CLI::App& command, ARGUMENTS& arguments);
void RunWait(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareSet(CLI::App& command, ARGUMENTS& arguments);
void RunSet(CONTEXT& context, const ARGUMENTS& arguments);
void DeclarePulse(CLI::App& command, ARGUMENTS& arguments);
void RunPulse(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareStop(CLI::App& command, ARGUMENTS& arguments);
void RunStop(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareLcd(CLI::App& command, ARGUMENTS& arguments);
void RunLcd(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareIr(CLI::App& command, ARGUMENTS& arguments);
void RunIr(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareParam(CLI::App& command, ARGUMENTS& arguments);
void RunParam(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareCard(CLI::App& command, ARGUMENTS& arguments);
void RunStore(CONTEXT& context, const ARGUMENTS& arguments);
void RunRecall(CONTEXT& context, const ARGUMENTS& arguments);
void RunReboot(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareLines(CLI::App& command, ARGUMENTS& arguments);
void RunIo(CONTEXT& context, const ARGUMENTS& arguments);
void RunCae(CONTEXT& context, const ARGUMENTS& arguments);

void DeclareSleep(CLI::App& command, ARGUMENTS& arguments);
void RunSleep(CONTEXT& context, const ARGUMENTS& arguments);
void DeclareBatch(CLI::App& command, ARGUMENTS& arguments);
void DeclareCompletion(CLI::App& command, ARGUMENTS& arguments);

/// In the order of the manual.
const std::vector<COMMAND>& CommandTable();
/// Null for none.
const COMMAND* FindCommand(const std::string& name);

}  // namespace ctl
