#pragma once

#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/Commands.h"
#include "tests/support/unit/FarEnd.h"
#include "tests/support/unit/Folder.h"
#include "vorn/base/LOGGER.h"
#include "vorn/base/VOQUEUE.h"
#include "vorn/bus/CARD_TABLE.h"
#include "vorn/bus/SERIAL_INTERFACE.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace unit {

constexpr const char* kHandshakeFrame = "03 40 6F 9A";
constexpr const char* kHandshakeReply = "05 6F 31 2E 30 37";  // version 1.07

/// A serial worker whose thread has ended: the test makes its passes. The pauses, and the listing
/// of devices, are stand-ins.
class SERIAL_FIXTURE : public testing::Test {
 protected:
  struct OPTIONS {
    bool polling = false;
    bool autoDiscover = false;
  };

  SERIAL_FIXTURE();

  /// A worker that is not connected and tries nothing by itself.
  SERIAL_INTERFACE& MakeWorker(PORT_SELECTION selection, const std::string& path, OPTIONS options);
  SERIAL_INTERFACE& MakeWorker(PORT_SELECTION selection = kFixedPath) {
    return MakeWorker(selection, line.Path(), {});
  }
  /// A worker that has found the controller at `line`.
  SERIAL_INTERFACE& Connect(OPTIONS options);
  SERIAL_INTERFACE& Connect() { return Connect(OPTIONS{}); }

  /// Makes one exchange whose reply has this body, in a pass of its own.
  void TakeReply(const BYTES& body);
  void TakeReply(const char* body) { TakeReply(Hex(body)); }

  PERIFCARD Card(std::size_t address);
  void SetCard(std::size_t address, const PERIFCARD& card);
  /// Makes slot `address` a card of this type, as identification would, without one.
  void Identify(std::size_t address, std::uint8_t typeCode);

  /// The input-change lines so far; takes them.
  std::vector<std::string> TakeLines();
  std::vector<std::string> Log() const { return ReadLog(m_folder.File("log")); }
  static std::vector<std::string> TakeAll(VOQUEUE& queue);

  STUB_COMMANDS commands;
  FAR_END line;
  VOQUEUE inbound;
  CARD_TABLE cards;
  LOGGER logger;
  std::unique_ptr<SERIAL_INTERFACE> serial;

 private:
  FOLDER m_folder;
};

}  // namespace unit
