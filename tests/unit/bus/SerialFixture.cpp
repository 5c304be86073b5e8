#include "tests/unit/bus/SerialFixture.h"

#include <algorithm>

namespace vorn {

namespace unit {

SERIAL_FIXTURE::SERIAL_FIXTURE() {
  line.Add(second);
  logger.SetFileName(m_folder.File("log"));
}

SERIAL_INTERFACE& SERIAL_FIXTURE::MakeWorker(PORT_SELECTION selection, const std::string& path,
                                             OPTIONS options) {
  // A port that is open and not confirmed is the state in which the worker does nothing.
  serial = std::make_unique<SERIAL_INTERFACE>(path, selection, kPortOpen, logger, inbound, cards,
                                              options.polling, options.autoDiscover, line, pauses);
  serial->Terminate();
  serial->SetThreadDelayUs(0);
  return *serial;
}

SERIAL_INTERFACE& SERIAL_FIXTURE::Connect(OPTIONS options) {
  MakeWorker(kFixedPath, line.Path(), options);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(serial->Init());
  return *serial;
}

SERIAL_INTERFACE& SERIAL_FIXTURE::MakeUnconnected(OPTIONS options) {
  MakeWorker(kSearchDevices, "", options);
  EXPECT_FALSE(serial->Init());
  EXPECT_EQ(serial->LinkStatus(), 0);
  line.List({line.Path()});
  return *serial;
}

std::unique_ptr<SERIAL_INTERFACE> SERIAL_FIXTURE::RunWorker() {
  pauses.RestForReal();
  return std::make_unique<SERIAL_INTERFACE>("", kSearchDevices, kNotConnected, logger, inbound,
                                            cards, false, false, line, pauses);
}

void SERIAL_FIXTURE::AnswerWith(const std::function<BYTES()>& reply) {
  line.AnswerWith(
      [reply](const BYTES& body) { return body.front() == '@' ? Hex(kHandshakeReply) : reply(); });
}

void SERIAL_FIXTURE::TakeReply(const BYTES& body) {
  line.Expect(Hex("02 50 00"), Frame(body));
  serial->BusQueue(SERIAL_INTERFACE::kGeneralQueue).ToQueue(HexList("50 00"));
  serial->OnTask();
}

PERIFCARD SERIAL_FIXTURE::Card(std::size_t address) {
  return cards.With(address, [](const PERIFCARD& card) { return card; });
}

void SERIAL_FIXTURE::MakePolled(std::size_t slot) {
  cards.With(slot, [&](PERIFCARD& card) {
    card.typeCode = kDigitalInput;
    card.stateWord = kInputCard;
    card.pollFlag = 1;
    card.pollFrame = bus::PollRequest(static_cast<std::uint8_t>(slot), 2);
  });
}

SERIAL_FIXTURE::LINES SERIAL_FIXTURE::TakeLines() {
  LINES lines;
  while (!inbound.IsEmpty()) {
    const QList message = inbound.DeQueue();
    lines.emplace_back(message.begin(), message.end());
  }
  return lines;
}

SERIAL_FIXTURE::LINES SERIAL_FIXTURE::TakeBodies(std::size_t queue) {
  LINES bodies;
  while (!serial->BusQueue(queue).IsEmpty()) {
    bodies.push_back(ToHex(serial->BusQueue(queue).DeQueue()));
  }
  return bodies;
}

std::ptrdiff_t SERIAL_FIXTURE::CountLog(const std::string& text) const {
  const LINES log = Log();
  return std::count(log.begin(), log.end(), text);
}

SERIAL_FIXTURE::LINES SERIAL_FIXTURE::FoundAt(const FAR_END& end) const {
  return {"[INF] try to catch hardware on " + end.Path(),
          "[INF] hardware found on " + end.Path() + " version: 1.07"};
}

}  // namespace unit

}  // namespace vorn
