#pragma once

#include <string>
#include <vector>

/// The texts that the CAE interface carries, as the operator's manual, docs/cae.md, prints them.
extern const std::vector<std::string> kQuickHelp;
extern const std::vector<std::string> kIoExamples;
