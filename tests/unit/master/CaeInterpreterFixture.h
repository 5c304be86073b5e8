#pragma once

#include "tests/support/CaeVectors.h"
#include "tests/support/unit/Bytes.h"
#include "tests/unit/master/DaemonDouble.h"
#include "vorn/master/CaeInterpreter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace vorn {

namespace unit {

/// The operator's command line, with the test's queues, cards and daemon.
class CaeInterpreter : public testing::Test {
 protected:
  using LINES = std::vector<std::string>;

  inline static const LINES kUnknownReply = {std::string(support::cae::kUnknown) + "\r\n>\r\n"};

  CaeInterpreter() { Make("\r\n", "\r\n"); }

  void Make(const std::string& inpSeparator, const std::string& outSeparator) {
    INTERFACE_DESCRIPTOR descriptor;
    descriptor.inpSeparator = inpSeparator;
    descriptor.outSeparator = outSeparator;
    interpreter = std::make_unique<CAE_INTERPRETER>(
        descriptor, output, [this](QList body) { generalQueue.ToQueue(std::move(body)); },
        inputLines, cards, daemon);
  }

  /// Takes what waits in a queue, message by message, as it would go out.
  static LINES TakeAll(VOQUEUE& queue) {
    LINES messages;
    while (!queue.IsEmpty()) {
      const QList message = queue.DeQueue();
      messages.emplace_back(message.begin(), message.end());
    }
    return messages;
  }

  LINES Answer(const std::string& text) {
    interpreter->InterpretCaeCommand(text);
    return TakeAll(output);
  }

  /// The replies of a recognised command: each with its separator, and the prompt behind them.
  static LINES Handled(LINES replies) {
    replies.emplace_back(">");
    for (std::string& reply : replies) {
      reply += "\r\n";
    }
    return replies;
  }

  /// The vectors of commands that ask a card.
  static std::vector<support::cae::VECTOR> CardVectors() {
    std::vector<support::cae::VECTOR> vectors;
    std::copy_if(std::begin(support::cae::kVectors), std::end(support::cae::kVectors),
                 std::back_inserter(vectors), [](const support::cae::VECTOR& vector) {
                   return vector.does == support::cae::DOES::kAsksCard;
                 });
    return vectors;
  }

  void SetType(std::size_t address, int typeCode) {
    cards.With(address, [typeCode](PERIFCARD& card) {
      card.typeCode = static_cast<std::uint8_t>(typeCode);
    });
  }
  void SetAllTypes(int typeCode) {
    for (std::size_t address = 0; address < bus::kAddresses; ++address) {
      SetType(address, typeCode);
    }
  }

  void SetQuery(std::size_t address, const BYTES& bytes) {
    cards.With(address, [&](PERIFCARD& card) {
      std::copy(bytes.begin(), bytes.end(), card.queryBytes.begin());
    });
  }
  BYTES Query(std::size_t address) {
    return cards.With(address, [](const PERIFCARD& card) {
      return BYTES(card.queryBytes.begin(), card.queryBytes.end());
    });
  }

  /// The bus answers: notes each body and lets the card at its address answer.
  void AnswerFromBus(const char* answer) {
    daemon.duringPause = [this, answer](std::size_t) {
      while (!generalQueue.IsEmpty()) {
        bodies.push_back(ToHex(generalQueue.DeQueue()));
        SetQuery(Hex(bodies.back()).at(1), Hex(answer));
      }
    };
  }

  /// Nothing has gone to the bus or to other clients, and nobody has waited.
  void ExpectNothingElse() {
    EXPECT_TRUE(generalQueue.IsEmpty());
    EXPECT_TRUE(inputLines.IsEmpty());
    EXPECT_TRUE(daemon.pauses.empty());
    EXPECT_EQ(daemon.closings, 0);
  }

  VOQUEUE output;
  VOQUEUE generalQueue;
  VOQUEUE inputLines;
  CARD_TABLE cards;
  DAEMON_DOUBLE daemon;
  LINES bodies;
  std::unique_ptr<CAE_INTERPRETER> interpreter;
};

}  // namespace unit

}  // namespace vorn
