#pragma once

#include "checkconf/Element.h"

#include <pugixml.hpp>

namespace vorn::checkconf {

/// Everything that can be said of a document from its text alone. Goes on where the daemon's reader
/// would stop, so that all mistakes are told at once.
void CheckDocument(const pugi::xml_document& document, CHECKING& checking);

/// The attributes of an element: those that are not among `known`, those given twice.
void CheckAttributeNames(const ELEMENT& element, const std::vector<std::string>& known,
                         CHECKING& checking);

/// Elements and text inside an element that holds attributes only.
void CheckHoldsNothing(const ELEMENT& element, CHECKING& checking);

/// Text outside the elements. True when the node was such text.
bool CheckStrayText(const pugi::xml_node& node, CHECKING& checking);

/// "A, B, C"
std::string Listed(const std::vector<std::string>& names);

}  // namespace vorn::checkconf
