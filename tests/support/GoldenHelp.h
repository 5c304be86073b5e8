#pragma once

#include <string>
#include <vector>

/// The texts that the CAE interface carries, as the operator's manual prints them, slips included.
extern const std::vector<std::string> kQuickHelp;   // 69 lines
extern const std::vector<std::string> kIoExamples;  // 22 lines
