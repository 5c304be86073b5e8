#include "tests/unit/config/SystemLogCalls.h"

#include <cstdarg>
#include <cstdio>

namespace vorn {

std::vector<std::string>
    systemLogCalls;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

namespace {

void Keep(int priority, const char* format, std::va_list arguments) {
  char text[1000];
  std::vsnprintf(text, sizeof text, format, arguments);
  systemLogCalls.push_back(std::to_string(priority) + " " + text);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);
void __wrap_closelog();

void __wrap_syslog(int priority, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Keep(priority, format, arguments);
  va_end(arguments);
}

void __wrap___syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Keep(priority, format, arguments);
  va_end(arguments);
}

void __wrap_closelog() {
  systemLogCalls.emplace_back("close");
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace vorn
