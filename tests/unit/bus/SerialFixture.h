#pragma once

#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/FakePauses.h"
#include "tests/support/unit/FarEnd.h"
#include "tests/support/unit/Folder.h"
#include "vorn/base/Logger.h"
#include "vorn/base/VoQueue.h"
#include "vorn/bus/CardTable.h"
#include "vorn/bus/SerialInterface.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vorn {

namespace unit {

constexpr const char* kHandshakeFrame = "03 40 6F 9A";
constexpr const char* kHandshakeReply = "05 6F 31 2E 30 37";  // version 1.07

/// A serial worker whose thread has ended: the test makes its passes. The line and the pauses are
/// the test's.
class SERIAL_FIXTURE : public testing::Test {
 protected:
  using LINES = std::vector<std::string>;
  using SECONDS = std::vector<int>;

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
  /// A worker in search mode that has found no adapter; there is one from now on.
  SERIAL_INTERFACE& MakeUnconnected(OPTIONS options);
  /// A worker in search mode whose thread runs.
  std::unique_ptr<SERIAL_INTERFACE> RunWorker();

  /// Answers the handshake, and everything else as it says.
  void AnswerWith(const std::function<BYTES()>& reply);
  void AnswerWith(const char* reply) {
    AnswerWith([bytes = Hex(reply)] { return bytes; });
  }
  /// Makes one exchange whose reply has this body, in a pass of its own.
  void TakeReply(const BYTES& body);
  void TakeReply(const char* body) { TakeReply(Hex(body)); }

  PERIFCARD Card(std::size_t address);
  /// Makes the slot an input card of two groups that is polled, as identification does.
  void MakePolled(std::size_t slot);

  /// The input-change lines so far; takes them.
  LINES TakeLines();
  /// The bodies that wait in a bus queue, as hex; takes them.
  LINES TakeBodies(std::size_t queue);
  LINES Log() const { return ReadLog(m_folder.File("log")); }
  std::ptrdiff_t CountLog(const std::string& text) const;
  /// The two lines of a controller that answers.
  LINES FoundAt(const FAR_END& end) const;

  FAKE_PAUSES pauses;
  FAR_END line;
  FAR_END second{"/dev/ttyUSB1"};  // which the line opens too
  VOQUEUE inbound;
  CARD_TABLE cards;
  LOGGER logger;
  std::unique_ptr<SERIAL_INTERFACE> serial;

 private:
  FOLDER m_folder;
};

}  // namespace unit

}  // namespace vorn
