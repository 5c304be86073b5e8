#include "tests/unit/bus/SerialFixture.h"

namespace unit {

SERIAL_FIXTURE::SERIAL_FIXTURE() {
  commands.LetAllDevicesPass();
  logger.SetFileName(m_folder.File("log"));
}

SERIAL_INTERFACE& SERIAL_FIXTURE::MakeWorker(PORT_SELECTION selection, const std::string& path,
                                             OPTIONS options) {
  // A port that is open and not confirmed is the state in which the worker does nothing.
  serial = std::make_unique<SERIAL_INTERFACE>(path, selection, kPortOpen, logger, inbound, cards,
                                              options.polling, options.autoDiscover);
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

void SERIAL_FIXTURE::TakeReply(const BYTES& body) {
  line.Expect(Hex("02 50 00"), Frame(body));
  serial->BusQueue(SERIAL_INTERFACE::kGeneralQueue).ToQueue(HexList("50 00"));
  serial->OnTask();
}

PERIFCARD SERIAL_FIXTURE::Card(std::size_t address) {
  return cards.With(address, [](const PERIFCARD& card) { return card; });
}

void SERIAL_FIXTURE::SetCard(std::size_t address, const PERIFCARD& card) {
  cards.With(address, [&](PERIFCARD& record) { record = card; });
}

void SERIAL_FIXTURE::Identify(std::size_t address, std::uint8_t typeCode) {
  BYTES reply(17, 0);
  reply[0] = '1';
  for (std::size_t slot = 0; slot < 16; ++slot) {
    reply[1 + slot] = slot == address ? typeCode : Card(slot).typeCode;
  }
  TakeReply(reply);
}

std::vector<std::string> SERIAL_FIXTURE::TakeLines() {
  return TakeAll(inbound);
}

std::vector<std::string> SERIAL_FIXTURE::TakeAll(VOQUEUE& queue) {
  std::vector<std::string> lines;
  while (!queue.IsEmpty()) {
    const QList message = queue.DeQueue();
    lines.emplace_back(message.begin(), message.end());
  }
  return lines;
}

}  // namespace unit
