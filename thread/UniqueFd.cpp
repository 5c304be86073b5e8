#include "thread/UniqueFd.h"

#include <unistd.h>

#include <utility>

namespace vorn {

UNIQUE_FD& UNIQUE_FD::operator=(UNIQUE_FD&& other) noexcept {
  if (this != &other) {
    Close();
    m_descriptor = other.Release();
  }
  return *this;
}

int UNIQUE_FD::Release() {
  return std::exchange(m_descriptor, -1);
}

void UNIQUE_FD::Close() {
  if (IsOpen()) {
    // Linux frees the number even when close reports EINTR: a second try could hit somebody else's.
    close(Release());
  }
}

}  // namespace vorn
