#pragma once

#include <utility>

namespace ctl {

/// Does something at the end of a scope, however it ends.
template <class ACT>
class FINALLY {
 public:
  explicit FINALLY(ACT act) : m_act(std::move(act)) {}
  ~FINALLY() { m_act(); }
  FINALLY(const FINALLY&) = delete;
  FINALLY& operator=(const FINALLY&) = delete;

 private:
  ACT m_act;
};

}  // namespace ctl
