#pragma once

#include "thread/Pauses.h"
#include "thread/Rest.h"
#include "thread/Thread.h"
#include "vorn/base/Backlog.h"
#include "vorn/base/Logger.h"
#include "vorn/base/QList.h"
#include "vorn/base/SharedField.h"
#include "vorn/base/Values.h"
#include "vorn/base/VoQueue.h"
#include "vorn/bus/CardBus.h"
#include "vorn/bus/CardTable.h"
#include "vorn/bus/Exchange.h"
#include "vorn/bus/Line.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorn {

enum LINK_STATUS : std::int32_t {
  kNotConnected = 0,
  kPortOpen = 1,         ///< opened and set up, no controller confirmed yet
  kControllerFound = 3,  ///< frames are exchanged only now
};

enum PORT_SELECTION : std::int32_t {
  kFixedPath = 1,      ///< the device path given at construction
  kSearchDevices = 2,  ///< the `ttyUSB` devices, one after the other
};

/// The worker that owns the serial port and alone talks on the card bus.
///
/// Its own thread (interval-driven) finds the adapter, sends the frame bodies waiting in its bus
/// queues one at a time, waits for each reply and turns replies into updates of the card table and
/// into input-change lines. Only that thread touches the port. Other threads
/// put frame bodies into the bus queues (one other thread: the master loop's), flip the polling
/// switch, set the thread delay and may ask for the port to be closed for good. The serial inbound
/// queue, the card table, the line and the pauses are lent and outlive the worker.
class SERIAL_INTERFACE final : public CThread {
 public:
  /// 0 to 15: by card address; 16: frames that concern no single card, and card parameters.
  static constexpr std::size_t kBusQueues = 17;
  static constexpr std::size_t kGeneralQueue = 16;

  SERIAL_INTERFACE(const std::string& devicePath, PORT_SELECTION selection, LINK_STATUS linkStatus,
                   const LOGGER& logger, VOQUEUE& inboundQueue, CARD_TABLE& cards, bool polling,
                   bool autoDiscover, LINE& line, PAUSES& pauses);
  /// Stops the thread (an exchange or a pause ends first), then closes the port.
  ~SERIAL_INTERFACE();
  SERIAL_INTERFACE(const SERIAL_INTERFACE&) = delete;
  SERIAL_INTERFACE& operator=(const SERIAL_INTERFACE&) = delete;

  using CThread::OnTask;
  /// One pass; always true.
  bool OnTask() override;

  /// Opens, configures and checks a port according to the selection; true when a controller
  /// answered.
  bool Init();
  /// 460800 baud, 8 data bits, no parity, 1 stop bit, raw, no flow control. False when refused.
  bool SetSerialParams();
  /// Sends the handshake and judges the reply; the port's name is for the log only.
  bool HardwareCheck(const std::string& port);

  /// One request and its reply, as bytes: the reply's body, or "TME" when none came in time, or
  /// "LCE" for an empty request, or an empty list for a request that fits no frame (over 254 bytes;
  /// nothing is sent) and for a reply that fits no buffer (over 135 bytes).
  QList Comm2HW(const QList& body);

  /// Queues an input-change line for each channel whose change flag is set, of the card at the
  /// address in the reply's byte 1. `reply` holds at least two bytes, the address below 16.
  void WriteToQueue(const std::uint8_t* reply);

  /// Ends the thread and waits for it. For an owner that stops several workers before it releases
  /// what they share; afterwards the operations above may be called from its own thread.
  void Terminate() { StopAndJoin(); }

  VOQUEUE& BusQueue(std::size_t number) { return m_busQueues.at(number); }
  /// Puts a request body into bus queue `number`. Without a link that serves, where more waits in
  /// that queue than may, its oldest go, which the log tells once for each absence. Master loop's
  /// thread.
  void QueueRequest(std::size_t number, QList body);
  /// The link serves, and so much waits in one of the bus queues that who fills them has to wait.
  bool IsBehind();
  bool Polling() const { return m_polling; }
  void SetPolling(bool on) {
    m_polling = on;
    LookAgain();
  }
  /// There may be something to poll that was not polled before.
  void LookAgain() { m_rest.bell.Ring(); }
  /// Who fills the bus queues, and waits where this worker is behind, rests by this bell.
  void WakeProducerBy(BELL& bell);
  std::int32_t ThreadDelayUs() const { return m_threadDelayUs; }
  /// Microseconds at the top of every pass; 0 or less is none. In force at once.
  void SetThreadDelayUs(std::int32_t delayUs) {
    m_threadDelayUs = delayUs;
    m_rest.bell.RingThrough();
  }
  LINK_STATUS LinkStatus() const { return m_linkStatus; }
  LOGGER& Logger() { return m_logger; }
  /// Asks the worker to close the port and not to open one again: the daemon is stopping.
  void ClosePort() {
    m_closeRequested = true;
    m_rest.bell.RingThrough();
  }

 private:
  bool HasWork();
  bool IsPolling();
  bool HasPolledCard();

  // The stages of a pass.
  void Connect();
  void ServeBusQueues();
  bool ServeBusQueue(std::size_t number);
  void QueuePollFrames();
  void QueueQuestion(std::size_t number, const QList& body);
  void ForgetQuestion(std::size_t number, const QList& body);

  bool Search();
  bool CheckPort();
  void LoseLink();

  ANSWER Ask(const QList& request);
  bool Serve(const QList& request);

  LOGGER m_logger;
  std::string m_devicePath;
  LINE& m_line;
  EXCHANGE m_exchange;
  PAUSES& m_pauses;
  SHARED_FIELD<LINK_STATUS> m_linkStatus;
  PORT_SELECTION m_selection;
  VOQUEUE& m_inboundQueue;
  std::array<VOQUEUE, kBusQueues> m_busQueues;
  /// Questions (polls, and requests to identify) that wait in each bus queue. Atomic: the master
  /// loop counts those that it drops.
  std::array<std::atomic<std::size_t>, kBusQueues> m_questionsWaiting{};
  /// There is a link, and the one before it was not lost in its first pass, or this one has carried
  /// a whole pass: one that is lost in each pass, since a card does not answer any more, is as good
  /// as none to the other cards.
  SHARED_FIELD<bool> m_isServing = false;
  bool m_hasCarriedPass = false;            // the link, if there is one
  bool m_isLostInOnePass = false;           // the one before it was
  SHARED_FIELD<bool> m_isLossTold = false;  // of requests, since the link has served
  BACKLOG m_lineBacklog;                    // in the inbound queue
  CARD_TABLE& m_cards;
  SHARED_FIELD<bool> m_polling;
  SHARED_FIELD<std::int32_t> m_threadDelayUs = kDefaultThreadDelayUs;
  bool m_autoDiscover;
  SHARED_FIELD<bool> m_closeRequested = false;
  REST m_rest;
};

}  // namespace vorn
