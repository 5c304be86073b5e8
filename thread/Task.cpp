#include "thread/Task.h"

namespace vorn {

void CTask::SetTaskStatus(TaskStatus_t status) {
  const CScopedLock lock(m_lock);
  m_status = status;
}

TaskStatus_t CTask::TaskStatus() {
  const CScopedLock lock(m_lock);
  return m_status;
}

}  // namespace vorn
