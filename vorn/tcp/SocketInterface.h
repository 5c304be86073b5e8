#pragma once

#include "thread/Lock.h"
#include "thread/Pauses.h"
#include "thread/Rest.h"
#include "thread/Thread.h"
#include "thread/UniqueFd.h"
#include "vorn/base/Logger.h"
#include "vorn/base/QList.h"
#include "vorn/base/SharedField.h"
#include "vorn/base/VoQueue.h"
#include "vorn/config/ConfigDescriptor.h"
#include "vorn/tcp/DeliveryWatch.h"
#include "vorn/tcp/MessageCutter.h"

#include <netinet/in.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace vorn {

/// Values of the descriptor's state field.
enum CONNECTION_STATE : std::int32_t {
  kIdle = 0,       ///< Init has not succeeded yet; nothing retries
  kListening = 1,  ///< the next pass accepts
  kAccepting = 2,  ///< in the pause before accept, or blocked in it
  kConnected = 3,  ///< a client is served
  kClosed = 4,     ///< left by the client or closed by command; about to listen again
};

enum TRANSFER_MODE : std::int32_t {
  kBinaryMode = 1,  ///< each message behind a length byte
  kTextMode = 2,    ///< each outgoing message followed by a carriage return
};

/// The worker that serves one TCP interface, one client at a time.
///
/// Its own thread (interval-driven) does all socket work: it listens, accepts, turns each read into
/// one message on the input queue and writes one message of the output queue per pass. It alone
/// opens and closes the sockets. The master loop's thread queues output, reads the connection state
/// and may call CloseByCommand, which only marks the connection closed and shuts the sockets down;
/// that wakes a blocked call, and the worker closes.
///
/// m_socketLock guards the two sockets' owners, every change of the connection state and what
/// belongs to it; the worker uses the descriptors without it, because nobody else closes them. The
/// output queue is owned, the input queue and the pauses are lent and outlive the thread.
class SOCKET_INTERFACE final : public CThread {
 public:
  SOCKET_INTERFACE(const INTERFACE_DESCRIPTOR& descriptor, const LOGGER& logger,
                   VOQUEUE& inputQueue, PAUSES& pauses);
  /// Stops the thread, whatever it waits for, then closes what is open.
  ~SOCKET_INTERFACE();
  SOCKET_INTERFACE(const SOCKET_INTERFACE&) = delete;
  SOCKET_INTERFACE& operator=(const SOCKET_INTERFACE&) = delete;

  /// Opens the listening socket: true when it listens, false (and the state unchanged) when it
  /// cannot. A port that somebody else has is asked for again for a quarter of a second, in which
  /// the caller is blocked. Called once by the owner after construction, then by the worker at each
  /// reconnection.
  bool Init();

  using CThread::OnTask;
  /// One pass; always true.
  bool OnTask() override;

  /// Ends the client's connection, and says so, whether or not there is one. Master loop's thread.
  void CloseByCommand();
  /// The same for the client that message `number` of the input queue came from; nothing where that
  /// one has left and the interface is open for another.
  void CloseByCommandOf(VOQUEUE::NUMBER number);
  /// That client has left and the interface is open for another, or was closed by command: what the
  /// message asks for itself concerns nobody who is there. Any thread.
  bool IsLeftBehind(VOQUEUE::NUMBER number) const;

  /// Logs the signal; changes nothing. Master loop's thread.
  void mf_SIGhandler(int signalNumber);

  /// Ends the thread and waits for it; the object stays usable for the owner's release. For an
  /// owner that stops several workers before it releases what they share.
  void Terminate();

  bool IsConnected() const { return State() == kConnected; }
  CONNECTION_STATE State() const { return static_cast<CONNECTION_STATE>(m_descriptor.state.Get()); }
  /// Microseconds at the top of every pass; 0 or less is none. In force at once.
  void SetThreadDelayUs(std::int32_t delayUs) {
    m_descriptor.threadDelayUs = delayUs;
    m_rest.bell.RingThrough();
  }
  std::int32_t ThreadDelayUs() const { return m_descriptor.threadDelayUs; }
  /// For the master loop's messages to the client. What is queued while no client is connected
  /// waits for the next one.
  VOQUEUE& OutputQueue() { return m_outputQueue; }
  /// The port that the listening socket is bound to, 0 when there is none; differs from the
  /// configured one where that was 0 or could not be bound.
  std::uint16_t BoundPort();
  void SetTransferMode(TRANSFER_MODE mode) { m_transferMode = mode; }

 private:
  enum class INPUT { kGoesOn, kEnd, kUnusable };

  // The stages of a pass, each in the state named.
  void AcceptClient();
  void ServeClient();
  void Reopen();
  void ParkForGood();

  bool BindToPort(int listener) const;
  UNIQUE_FD WaitForClient(sockaddr_in& peer);
  bool Adopt(UNIQUE_FD& client);
  bool HasWork();
  REST::SOURCE Source();
  bool IsHeldBack();
  INPUT ReadClient();
  INPUT Receive();
  INPUT LeaveUnread();
  void QueueInput(const std::string& bytes);
  void WatchDelivery();
  void WriteNextMessage(bool clientLeft);
  bool WriteMessage(const QList& message);
  bool CloseAfterClient();
  void LogClosedByCommand();
  void MarkClosedByCommand();
  void CloseSockets();
  bool SocketsOpen();
  void SetState(CONNECTION_STATE state) { m_descriptor.state = state; }
  bool Replace(CONNECTION_STATE expected, CONNECTION_STATE state);
  void LogError(const std::string& text) { m_logger.WriteLog(kErr, text); }
  void LogInfo(const std::string& text) { m_logger.WriteLog(kInf, text); }

  INTERFACE_DESCRIPTOR m_descriptor;
  LOGGER m_logger;
  CLock m_socketLock;
  UNIQUE_FD m_listener;
  UNIQUE_FD m_client;
  /// Passes in the closed state since the last close.
  SHARED_FIELD<std::int32_t> m_reconnectCounter = 0;
  /// Of the input queue: those before it came over connections that are over.
  SHARED_FIELD<VOQUEUE::NUMBER> m_firstMessage = 0;
  MESSAGE_CUTTER m_cutter;
  // Of the output, the worker's thread only.
  bool m_tornMessage = false;  // a write failed in mid-message
  DELIVERY_WATCH m_delivery;
  REST m_rest;
  VOQUEUE m_outputQueue;
  VOQUEUE& m_inputQueue;
  PAUSES& m_pauses;
  SHARED_FIELD<TRANSFER_MODE> m_transferMode = kTextMode;
};

}  // namespace vorn
