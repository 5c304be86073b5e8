#pragma once

#include "sim/rack/Card.h"
#include "sim/rack/Rack.h"

#include <string>
#include <vector>

namespace sim {

/// A field's value as a person reads it.
std::string ValueText(const FIELD& field);

/// "card 5 digital-out '16 channel digital output'", then one indented line for each other field.
std::string ShowText(const std::vector<FIELD>& fields);

/// The cards as JSON on one line: an object for one, an array for all.
std::string ShowJson(RACK& rack, int address);
std::string ShowJson(RACK& rack);

/// One line for each slot that holds a card.
std::string ListText(RACK& rack);

}  // namespace sim
