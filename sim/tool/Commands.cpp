#include "sim/tool/Commands.h"

#include "sim/tool/Arguments.h"
#include "sim/tool/FaultArguments.h"
#include "sim/tool/Help.h"
#include "sim/tool/Show.h"

#include <algorithm>
#include <sstream>

namespace sim {

namespace {

using ARGUMENTS = std::vector<std::string>;

RESULT NoSuchCommand(const std::string& word) {
  return RESULT::Error("there is no command '" + word + "'; 'help' lists them");
}

/// Runs something at the card of an address.
RESULT At(SIMULATION& simulation, int address, const std::function<RESULT(CARD&)>& action) {
  RESULT result = RESULT::Error("no card at address " + AddressText(address));
  simulation.Rack().WithCard(address, [&](CARD& card) { result = action(card); });
  return result;
}

/// The same at the card and channel of "3.6". A key of a key matrix is named by its code, which
/// like all bytes is hexadecimal; every other channel is counted in decimal.
RESULT AtPlace(SIMULATION& simulation, const std::string& word,
               const std::function<RESULT(CARD&, int)>& action) {
  const PLACE_ARGUMENT place = ReadPlace(word);
  return At(simulation, place.address, [&](CARD& card) {
    return action(card, card.NamesKeysByCode() ? ReadHexByte(place.channel, "key code")
                                               : ReadNumber(place.channel, "channel"));
  });
}

RESULT Help(SIMULATION& /*simulation*/, const ARGUMENTS& arguments) {
  if (arguments.empty()) {
    return RESULT::Good(HelpText());
  }
  const COMMAND* command = FindCommand(arguments[0]);
  return command != nullptr ? RESULT::Good(HelpText(*command)) : NoSuchCommand(arguments[0]);
}

RESULT List(SIMULATION& simulation, const ARGUMENTS& /*arguments*/) {
  return RESULT::Good(ListText(simulation.Rack()));
}

RESULT Show(SIMULATION& simulation, const ARGUMENTS& arguments) {
  RACK& rack = simulation.Rack();
  ARGUMENTS rest = arguments;
  const bool json = std::erase(rest, "--json") > 0;
  if (rest.size() > 1) {
    return RESULT::Error("show takes one card address, or none for all");
  }
  if (!rest.empty()) {
    const int address = ReadAddress(rest[0]);
    if (rack.TypeAt(address) == type::kEmpty) {
      return RESULT::Error("no card at address " + AddressText(address));
    }
    if (json) {
      return RESULT::Good(ShowJson(rack, address));
    }
    return At(simulation, address,
              [](const CARD& card) { return RESULT::Good(ShowText(card.Show())); });
  }
  if (json) {
    return RESULT::Good(ShowJson(rack));
  }
  std::string text;
  for (int address = 0; address < kSlots; ++address) {
    rack.WithCard(address, [&](const CARD& card) {
      text += (text.empty() ? "" : "\n") + ShowText(card.Show());
    });
  }
  return RESULT::Good(text.empty() ? "the rack is empty" : text);
}

RESULT ForEachPlace(SIMULATION& simulation, const ARGUMENTS& places, RESULT (CARD::*action)(int)) {
  for (const std::string& place : places) {
    // cppcheck-suppress constParameter ; the action changes the card
    const auto act = [action](CARD& card, int channel) { return (card.*action)(channel); };
    RESULT result = AtPlace(simulation, place, act);
    if (!result) {
      return result;
    }
  }
  return RESULT::Good();
}

RESULT Press(SIMULATION& simulation, const ARGUMENTS& arguments) {
  return ForEachPlace(simulation, arguments, &CARD::Press);
}

RESULT Release(SIMULATION& simulation, const ARGUMENTS& arguments) {
  return ForEachPlace(simulation, arguments, &CARD::Release);
}

RESULT Turn(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int steps = ReadNumber(arguments[1], "number of steps");
  return At(simulation, ReadAddress(arguments[0]),
            [steps](CARD& card) { return card.Turn(steps); });
}

RESULT Set(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int value = ReadHexByte(arguments[1], "value");
  return AtPlace(simulation, arguments[0],
                 [value](CARD& card, int channel) { return card.Set(channel, value); });
}

RESULT Ramp(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int value = ReadHexByte(arguments[1], "value");
  const auto time = ReadSeconds(arguments[2]);
  return AtPlace(simulation, arguments[0],
                 [=](CARD& card, int channel) { return card.Ramp(channel, value, time); });
}

RESULT Noise(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int amplitude = ReadHexByte(arguments[1], "amplitude");
  return AtPlace(simulation, arguments[0], [amplitude](CARD& card, int channel) {
    return card.SetNoise(channel, amplitude);
  });
}

RESULT Speed(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int speed = ReadNumber(arguments[1], "speed");
  return At(simulation, ReadAddress(arguments[0]),
            [speed](CARD& card) { return card.SetSpeed(speed); });
}

RESULT Parameter(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int value = ReadHexByte(arguments[2], "value");
  const PLACE_ARGUMENT place = ReadPlace(arguments[0]);
  const int channel = ReadNumber(arguments[1], "channel");
  return At(simulation, place.address,
            [&](CARD& card) { return card.PresetParameter(place.channel, channel, value); });
}

RESULT Name(SIMULATION& simulation, const ARGUMENTS& arguments) {
  return At(simulation, ReadAddress(arguments[0]), [&](CARD& card) {
    card.Rename(arguments[1]);
    return RESULT::Good();
  });
}

RESULT Reboot(SIMULATION& simulation, const ARGUMENTS& arguments) {
  return At(simulation, ReadAddress(arguments[0]), [](CARD& card) {
    card.Reboot();
    return RESULT::Good();
  });
}

RESULT Pull(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments[0]);
  RESULT result = At(simulation, address, [](CARD& /*card*/) { return RESULT::Good(); });
  simulation.Rack().Remove(address);
  return result;
}

RESULT Plug(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments[0]);
  simulation.Rack().Insert(address, ReadCardType(arguments[1]));
  return RESULT::Good();
}

RESULT Fault(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const FAULT fault = ReadFault(arguments);
  const int number = simulation.Adapter().Faults().Add(fault);
  return RESULT::Good("fault " + std::to_string(number) + ": " + Describe(fault));
}

RESULT Faults(SIMULATION& simulation, const ARGUMENTS& /*arguments*/) {
  std::string text;
  for (const ACTIVE_FAULT& each : simulation.Adapter().Faults().List()) {
    text += (text.empty() ? "fault " : "\nfault ") + std::to_string(each.number) + ": " +
            Describe(each.fault);
  }
  return RESULT::Good(text.empty() ? "no faults" : text);
}

RESULT Clear(SIMULATION& simulation, const ARGUMENTS& arguments) {
  FAULT_ENGINE& faults = simulation.Adapter().Faults();
  if (arguments.empty() || arguments[0] == "all") {
    faults.ClearAll();
    return RESULT::Good();
  }
  const int number = ReadNumber(arguments[0], "number of a fault");
  if (!faults.Clear(number)) {
    return RESULT::Error("there is no fault " + std::to_string(number) + "; 'faults' lists them");
  }
  return RESULT::Good();
}

RESULT Reset(SIMULATION& simulation, const ARGUMENTS& arguments) {
  constexpr std::chrono::milliseconds kStartUp{1000};
  simulation.Adapter().ResetController(arguments.empty() ? kStartUp : ReadSeconds(arguments[0]));
  return RESULT::Good();
}

RESULT Unplug(SIMULATION& simulation, const ARGUMENTS& /*arguments*/) {
  return simulation.Adapter().Unplug();
}

RESULT Replug(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const RESULT result = simulation.Plug(
      arguments.empty() ? simulation.LastNumber() : ReadNumber(arguments[0], "adapter number"));
  return result ? RESULT::Good() : result;
}

RESULT Dummy(SIMULATION& simulation, const ARGUMENTS& arguments) {
  const int number = ReadNumber(arguments[0], "adapter number");
  const std::string& word = arguments[1];
  if (word == "off") {
    return simulation.RemoveDummy(number);
  }
  if (word == "silent") {
    return simulation.AddDummy(number, std::chrono::milliseconds(0));
  }
  constexpr std::chrono::milliseconds kChatter{5};
  if (word == "chatter") {
    return simulation.AddDummy(number, kChatter);
  }
  return RESULT::Error("a second adapter is silent, chatter or off");
}

RESULT Send(SIMULATION& simulation, const ARGUMENTS& arguments) {
  std::string text;
  for (const std::string& word : arguments) {
    text += word + " ";
  }
  if (!simulation.Adapter().Plugged()) {
    return RESULT::Error("the adapter is not plugged in");
  }
  simulation.Adapter().Send(ReadHexBytes(text));
  return RESULT::Good();
}

RESULT Version(SIMULATION& simulation, const ARGUMENTS& arguments) {
  if (arguments.empty()) {
    return RESULT::Good(simulation.Rack().Version());
  }
  simulation.Rack().SetVersion(arguments[0]);
  return RESULT::Good();
}

RESULT Counters(SIMULATION& simulation, const ARGUMENTS& /*arguments*/) {
  const COUNTERS counters = simulation.Adapter().Counters();
  std::ostringstream text;
  text << "requests " << counters.requests << "\nanswered " << counters.replies << "\nunanswered "
       << counters.silences << "\nbytes in " << counters.bytesIn << "\nbytes out "
       << counters.bytesOut << "\nbytes lost " << counters.bytesLost << "\nunfinished requests "
       << counters.partialFrames << "\nopened " << counters.openings;
  return RESULT::Good(text.str());
}

RESULT Quit(SIMULATION& simulation, const ARGUMENTS& /*arguments*/) {
  simulation.Quit();
  return RESULT::Good();
}

constexpr std::size_t kAny = 1000;

}  // namespace

const std::vector<COMMAND>& Commands() {
  // clang-format off
  static const std::vector<COMMAND> kCommands = {
    // word      arguments                 help                                            fewest most run
    {"help",     "[COMMAND]",              "lists the commands, or explains one",               0, 1, Help},
    {"list",     "",                       "lists the cards of the rack",                       0, 0, List},
    {"show",     "[A] [--json]",           "shows the state of card A, or of all",              0, 2, Show},
    {"press",    "A.K ...",                "presses key K of card A and keeps it down",         1, kAny, Press},
    {"release",  "A.K ...",                "lets go of it",                                     1, kAny, Release},
    {"turn",     "A N",                    "turns the encoder of card A by N steps (-127 to 127)", 2, 2, Turn},
    {"set",      "A.C VV",                 "sets pot or input block C of card A to VV (00 to FF)", 2, 2, Set},
    {"ramp",     "A.C VV SECONDS",         "moves pot C of card A to VV in that time",          3, 3, Ramp},
    {"noise",    "A.C VV",                 "lets pot C of card A tremble by up to VV",          2, 2, Noise},
    {"speed",    "A N",                    "lets the servos of card A move N steps a second (0: at once)", 2, 2, Speed},
    {"param",    "A.NAME C VV",            "sets and stores a parameter: param 0.endA 3 40",    3, 3, Parameter},
    {"name",     "A TEXT",                 "gives card A a name",                               2, 2, Name},
    {"reboot",   "A",                      "reboots card A: stored parameters are the working ones", 1, 1, Reboot},
    {"pull",     "A",                      "pulls card A out of the rack",                      1, 1, Pull},
    {"plug",     "A TYPE",                 "puts a card of that type into slot A",              2, 2, Plug},
    {"fault",    "KIND [ARGUMENT] [on A] [code CODE] [once | times N | for SECONDS | always]",
                                           "spoils answers; 'help fault' lists the kinds",      1, kAny, Fault},
    {"faults",   "",                       "lists the faults in force",                         0, 0, Faults},
    {"clear",    "[N | all]",              "ends fault N, or all",                              0, 1, Clear},
    {"reset",    "[SECONDS]",              "resets the controller; it answers nothing for that long (1)", 0, 1, Reset},
    {"unplug",   "",                       "unplugs the adapter",                               0, 0, Unplug},
    {"replug",   "[N]",                    "plugs it in again, under the same or another number", 0, 1, Replug},
    {"adapter",  "N silent | chatter | off", "adds a second adapter that never answers or talks nonsense", 2, 2, Dummy},
    {"send",     "HEX ...",                "sends bytes that nobody asked for",                 1, kAny, Send},
    {"version",  "[TEXT]",                 "shows or sets the controller's version (4 characters)", 0, 1, Version},
    {"counters", "",                       "shows what passed over the line so far",            0, 0, Counters},
    {"quit",     "",                       "ends vornsim",                                      0, 0, Quit},
  };
  // clang-format on
  return kCommands;
}

const COMMAND* FindCommand(const std::string& word) {
  for (const COMMAND& row : Commands()) {
    if (word == row.word) {
      return &row;
    }
  }
  return nullptr;
}

namespace {

/// The command of a line and its arguments; a null command for a line with nothing to do.
struct PARSED {
  const COMMAND* command = nullptr;
  ARGUMENTS arguments;
};

PARSED Parse(const std::string& line) {
  PARSED parsed;
  parsed.arguments = SplitWords(line);
  if (parsed.arguments.empty() || parsed.arguments[0][0] == '#') {
    return parsed;
  }
  parsed.command = FindCommand(parsed.arguments[0]);
  if (parsed.command == nullptr) {
    throw ARGUMENT_ERROR(NoSuchCommand(parsed.arguments[0]).text);
  }
  parsed.arguments.erase(parsed.arguments.begin());
  const std::size_t count = parsed.arguments.size();
  if (count < parsed.command->fewest || count > parsed.command->most) {
    std::string usage = std::string("usage: ") + parsed.command->word;
    if (*parsed.command->arguments != '\0') {
      usage += std::string(" ") + parsed.command->arguments;
    }
    throw ARGUMENT_ERROR(usage);
  }
  return parsed;
}

}  // namespace

RESULT Execute(SIMULATION& simulation, const std::string& line) {
  try {
    const PARSED parsed = Parse(line);
    return parsed.command == nullptr ? RESULT::Good()
                                     : parsed.command->run(simulation, parsed.arguments);
  } catch (const ARGUMENT_ERROR& error) {
    return RESULT::Error(error.what());
  }
}

RESULT Check(const std::string& line) {
  try {
    Parse(line);
    return RESULT::Good();
  } catch (const ARGUMENT_ERROR& error) {
    return RESULT::Error(error.what());
  }
}

std::string ResponseText(const RESULT& result) {
  if (!result) {
    return "error: " + result.text + "\n";
  }
  return (result.text.empty() ? "" : result.text + "\n") + "OK\n";
}

}  // namespace sim
