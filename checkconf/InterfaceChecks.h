#pragma once

#include "checkconf/Element.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::checkconf {

/// The checks around `Interfaces`: each interface for itself, and, with what else was met in the
/// document, all of them together.
class INTERFACE_CHECKS {
 public:
  explicit INTERFACE_CHECKS(CHECKING& checking) : m_checking(checking) {}

  /// An element `Interfaces`.
  void CheckInterfaces(const ELEMENT& interfaces);
  /// Another child of the root, in document order.
  void NoticeSetting(const ELEMENT& element);
  /// At the end of the document.
  void CheckTogether();

 private:
  struct SERVED {
    std::string name;
    std::optional<std::int32_t> port;
    std::size_t offset;  // of the port, or of the element
  };

  void CheckInterface(const ELEMENT& element);
  void CheckName(const ELEMENT& element);
  void CheckPort(const ELEMENT& element);
  void CheckSeparator(const ELEMENT& element, const ATTRIBUTE& attribute);
  void CheckEqualPorts();
  void Serve(const ELEMENT& element, const std::string& name);

  CHECKING& m_checking;
  std::vector<SERVED> m_served;  // one per name: the last
  std::optional<std::int32_t> m_delayOfInterfaces;
  std::int32_t m_delayUs = 0;
  bool m_speedSeen = false;
};

}  // namespace vorn::checkconf
