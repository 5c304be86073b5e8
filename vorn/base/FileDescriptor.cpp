#include "vorn/base/FileDescriptor.h"

#include <unistd.h>

#include <utility>

namespace vorn {

FILE_DESCRIPTOR& FILE_DESCRIPTOR::operator=(FILE_DESCRIPTOR&& other) noexcept {
  if (this != &other) {
    Close();
    m_descriptor = other.Release();
  }
  return *this;
}

int FILE_DESCRIPTOR::Release() {
  return std::exchange(m_descriptor, -1);
}

void FILE_DESCRIPTOR::Close() {
  if (IsOpen()) {
    // Linux frees the number even when close reports EINTR: a second try could hit somebody else's.
    close(Release());
  }
}

}  // namespace vorn
