#include "client/Greeting.h"

#include <algorithm>
#include <utility>

namespace client {

namespace {

/// How much of the end of `bytes` the text may begin with, all of it left out.
std::size_t BegunAtTheEnd(std::string_view bytes, std::string_view text) {
  for (std::size_t length = std::min(bytes.size(), text.size() - 1); length > 0; --length) {
    if (bytes.substr(bytes.size() - length) == text.substr(0, length)) {
      return length;
    }
  }
  return 0;
}

}  // namespace

std::string_view GreetingOf(INTERFACE interface) {
  switch (interface) {
    case INTERFACE::kCae:
      return "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";
    case INTERFACE::kIo:
      return "VORN IO interface is ready\r\n\r";
    case INTERFACE::kMon:
      break;
  }
  return "VORN MON interface is ready\r\n\r";
}

std::string GREETING_SEARCH::Take(std::string_view bytes) {
  std::string all = std::exchange(m_held, {});
  all += bytes;
  if (!m_found) {
    m_skipped += bytes.size();
    Search(all);
  }
  if (m_found != m_interface) {
    return {};
  }
  const std::string_view greeting = GreetingOf(m_interface);
  for (std::size_t at = all.find(greeting); at != std::string::npos; at = all.find(greeting, at)) {
    all.erase(at, greeting.size());
  }
  const std::size_t begun = BegunAtTheEnd(all, greeting);
  m_held = all.substr(all.size() - begun);
  all.resize(all.size() - begun);
  return all;
}

/// Leaves in `bytes` what follows the greeting. The one that comes first counts.
void GREETING_SEARCH::Search(std::string& bytes) {
  std::size_t end = std::string::npos;
  std::size_t first = std::string::npos;
  std::size_t begun = 0;
  for (const INTERFACE interface : kInterfaces) {
    const std::string_view greeting = GreetingOf(interface);
    const std::size_t at = bytes.find(greeting);
    if (at < first) {
      m_found = interface;
      first = at;
      end = at + greeting.size();
    }
    begun = std::max(begun, BegunAtTheEnd(bytes, greeting));
  }
  if (m_found) {
    bytes.erase(0, end);
  } else {
    m_held = bytes.substr(bytes.size() - begun);
  }
}

void GREETING_SEARCH::Clear() {
  m_found.reset();
  m_skipped = 0;
  m_held.clear();
}

}  // namespace client
