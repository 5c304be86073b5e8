#pragma once

#include "sim/line/Descriptor.h"
#include "sim/line/Exchange.h"
#include "sim/line/Faults.h"
#include "sim/rack/Rack.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sim {

/// What happened at an adapter since it was made.
struct COUNTERS {
  std::uint64_t requests = 0;  // complete frames received
  std::uint64_t replies = 0;   // requests that had an answer
  std::uint64_t silences = 0;  // requests that got none
  std::uint64_t bytesIn = 0;
  std::uint64_t bytesOut = 0;
  std::uint64_t bytesLost = 0;      // nobody read the near end and its buffer was full
  std::uint64_t partialFrames = 0;  // dropped after a silence in the middle of a frame
  std::uint64_t openings = 0;       // times that somebody opened the near end
};

struct ADAPTER_OPTIONS {
  std::string devDir = "/dev";  // where the ttyUSBn link is made
  bool realTime = true;         // ask for SCHED_FIFO; without the right to it, quietly do without
  /// Bits per second; both directions then take their time on the line, 10 bits a byte, one piece
  /// of an answer arriving when its last byte is through. 0: no time at all.
  int baud = 0;
  /// What the USB chip holds received bytes back before it hands them on.
  std::chrono::milliseconds latencyTimer{0};
  /// Where adapter and faults take the time from, as the rack does.
  CLOCK clock = std::chrono::steady_clock::now;
};

/// Which way bytes went over the line.
enum class DIRECTION { kRequest, kAnswer };

/// A USB serial adapter with a bus controller and a rack behind it.
///
/// Runs one thread, which owns the pseudo-terminal and answers each request frame at once. Public
/// operations may be called from any thread; those that plug or unplug are carried out by that
/// thread and have happened when they return. The rack is lent and must outlive the adapter;
/// several adapters may share a rack, and one without a rack (null) never answers.
class ADAPTER {
 public:
  /// May answer a request in place of the rack: gets the request and the reply body that the rack
  /// gave (nothing: it stays silent); returns the raw bytes to send, an empty REPLY for silence, or
  /// nothing to leave it as it is. Runs on the adapter's thread; must not block and must not call
  /// SetReplyHook.
  using REPLY_HOOK =
      std::function<std::optional<REPLY>(const REQUEST&, const std::optional<Bytes>&)>;

  /// Gets a line for what happens at the adapter ("adapter /dev/ttyUSB0 ready"), on the adapter's
  /// thread; must be quick.
  using LISTENER = std::function<void(const std::string& line)>;

  /// Gets all that crosses the line: each request frame once its answer is known (or what there
  /// was of a dropped one) and each piece of an answer when it is sent. On the adapter's thread;
  /// must be quick.
  using TAP = std::function<void(DIRECTION, TIME, const Bytes&)>;

  /// A request of which the rest does not come within this time is dropped, as a controller does.
  static constexpr std::chrono::milliseconds kFrameGap{200};

  explicit ADAPTER(RACK* rack, ADAPTER_OPTIONS options = {});
  ~ADAPTER();
  ADAPTER(const ADAPTER&) = delete;
  ADAPTER& operator=(const ADAPTER&) = delete;

  /// Appears as ttyUSB<number>. An error when it is plugged in already or the name exists.
  RESULT Plug(int number = 0);
  /// Disappears; whoever has it open gets a hang-up, what was not sent yet is lost. An error when
  /// it is not plugged in.
  RESULT Unplug();
  bool Plugged() const;

  /// "/dev/ttyUSB0"; empty while unplugged.
  std::string LinkPath() const;
  /// "/dev/pts/3"; empty while unplugged.
  std::string NearPath() const;

  /// Sends bytes without a request, after what is already due.
  void Send(const Bytes& bytes);

  /// The controller starts anew: the cards reboot, what was on its way is lost, and for that long
  /// no request is answered.
  void ResetController(std::chrono::milliseconds deaf);

  /// Takes only so many bytes of the next request; then the adapter disappears, or, with a time,
  /// the controller starts anew as with ResetController, and takes the rest for a request's
  /// beginning.
  void InterruptRequest(std::size_t count,
                        std::optional<std::chrono::milliseconds> deaf = std::nullopt);

  /// Sends a few bytes of nonsense every so often by itself; 0: stops.
  void SetChatter(std::chrono::milliseconds interval);

  void SetReplyHook(REPLY_HOOK hook);
  void SetListener(LISTENER listener);
  /// One more; it stays as long as the adapter.
  void AddTap(TAP tap);

  /// What goes wrong between request and answer; after the reply hook.
  FAULT_ENGINE& Faults() { return m_faults; }

  COUNTERS Counters() const;
  /// The thread got its real-time priority.
  bool RealTime() const { return m_isRealTime.load(std::memory_order_relaxed); }

 private:
  struct THREAD;  // what only the adapter's thread touches
  void Run();
  void Wake() const;
  /// Lets the adapter's thread carry out the task, and waits for it.
  RESULT Call(std::function<RESULT()> task);
  void Do(const std::function<void()>& task);

  RACK* const m_rack;
  const ADAPTER_OPTIONS m_options;
  FAULT_ENGINE m_faults;

  mutable std::mutex m_mutex;  // guards the seven below
  COUNTERS m_counters;
  std::shared_ptr<const REPLY_HOOK> m_hook;
  std::shared_ptr<const LISTENER> m_listener;
  std::shared_ptr<const std::vector<TAP>> m_taps;
  std::string m_linkPath;
  std::string m_nearPath;
  std::deque<std::packaged_task<RESULT()>> m_tasks;

  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_isRealTime{false};  // set once by the thread; a plain note, orders nothing
  DESCRIPTOR m_wake;                      // event counter: look at m_tasks and m_stop
  std::unique_ptr<THREAD> m_state;
  std::thread m_thread;  // last: everything it uses exists before it runs
};

}  // namespace sim
