#include "sim/line/Adapter.h"

#include "sim/line/FrameReader.h"
#include "sim/line/Openings.h"
#include "sim/line/Pty.h"
#include "sim/line/Schedule.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <random>

namespace sim {

namespace {

/// Above ordinary programs, below what a system keeps for itself.
constexpr int kRealTimePriority = 10;
/// More than any burst of requests that a daemon with one frame in flight can send.
constexpr std::size_t kReadSize = 4096;

bool AskForRealTime() {
  sched_param parameters{};
  parameters.sched_priority = kRealTimePriority;
  return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) == 0;
}

template <class HOOK>
std::shared_ptr<const HOOK> Shared(HOOK hook) {
  return std::make_shared<const HOOK>(std::move(hook));
}

}  // namespace

/// What only the adapter's thread touches: the line and what is about to go out on it.
struct ADAPTER::THREAD {
  explicit THREAD(ADAPTER& adapter)
      : m_owner(adapter), m_due(adapter.m_options.baud, adapter.m_options.latencyTimer) {}

  void Loop();
  RESULT Plug(int number);
  RESULT Unplug();
  void Send(const Bytes& bytes);
  void Reset(std::chrono::milliseconds deaf);
  void SetChatter(std::chrono::milliseconds interval);

  /// See InterruptRequest.
  struct INTERRUPTION {
    std::size_t count;
    std::optional<std::chrono::milliseconds> deaf;
  };
  std::optional<INTERRUPTION> interruption;

 private:
  std::optional<std::chrono::nanoseconds> UntilNext(TIME now) const;
  void RunTasks();
  void ReadOpenings();
  bool SomebodyListens();
  void ReadLine();
  void Interrupt(INTERRUPTION now);
  void Handle(Bytes frame);
  void DropPartial(TIME now);
  void ChatterDue(TIME now);
  void WriteDue(TIME now);
  void Tap(DIRECTION direction, TIME when, const Bytes& bytes);
  void Write(const Bytes& bytes);
  void Say(const std::string& line);
  TIME Now() const { return m_owner.m_options.clock(); }
  /// A hook as it is now, ours until we are done with it.
  template <class HOOK>
  std::shared_ptr<const HOOK> Lent(const std::shared_ptr<const HOOK>& hook) {
    const std::lock_guard lock(m_owner.m_mutex);
    return hook;
  }
  template <class CHANGE>
  void Count(CHANGE change) {
    const std::lock_guard lock(m_owner.m_mutex);
    change(m_owner.m_counters);
  }

  ADAPTER& m_owner;
  PTY m_pty;
  OPENINGS m_near;
  FRAME_READER m_reader;
  TIME m_lastByte{};
  std::uint64_t m_lastRequest = 0;
  SCHEDULE m_due;
  TIME m_deafUntil{};
  std::chrono::milliseconds m_chatter{0};
  TIME m_nextChatter{};
  std::minstd_rand m_random;  // the same nonsense in every run
};

ADAPTER::ADAPTER(RACK* rack, ADAPTER_OPTIONS options)
    : m_rack(rack),
      m_options(std::move(options)),
      m_faults(m_options.clock),
      m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_state(std::make_unique<THREAD>(*this)) {
  // Signals are for the program's own threads; this one must not be interrupted.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  m_thread = std::thread([this] { Run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ADAPTER::~ADAPTER() {
  m_stop = true;
  Wake();
  m_thread.join();
}

void ADAPTER::Wake() const {
  const std::uint64_t one = 1;
  static_cast<void>(!write(m_wake.Get(), &one, sizeof one));
}

void ADAPTER::Run() {
  if (m_options.realTime && AskForRealTime()) {
    m_isRealTime.store(true, std::memory_order_relaxed);
  }
  m_state->Loop();
}

RESULT ADAPTER::Call(std::function<RESULT()> task) {
  if (std::this_thread::get_id() == m_thread.get_id()) {
    return task();
  }
  std::packaged_task<RESULT()> packaged(std::move(task));
  std::future<RESULT> done = packaged.get_future();
  {
    const std::lock_guard lock(m_mutex);
    m_tasks.push_back(std::move(packaged));
  }
  Wake();
  return done.get();
}

void ADAPTER::Do(const std::function<void()>& task) {
  static_cast<void>(Call([&task] {
    task();
    return RESULT::Good();
  }));
}

RESULT ADAPTER::Plug(int number) {
  return Call([this, number] { return m_state->Plug(number); });
}

RESULT ADAPTER::Unplug() {
  return Call([this] { return m_state->Unplug(); });
}

void ADAPTER::Send(const Bytes& bytes) {
  Do([&] { m_state->Send(bytes); });
}

bool ADAPTER::Plugged() const {
  return !LinkPath().empty();
}

std::string ADAPTER::LinkPath() const {
  const std::lock_guard lock(m_mutex);
  return m_linkPath;
}

std::string ADAPTER::NearPath() const {
  const std::lock_guard lock(m_mutex);
  return m_nearPath;
}

void ADAPTER::SetReplyHook(REPLY_HOOK hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = hook ? Shared(std::move(hook)) : nullptr;
}

void ADAPTER::ResetController(std::chrono::milliseconds deaf) {
  Do([&] { m_state->Reset(deaf); });
}

void ADAPTER::InterruptRequest(std::size_t count, std::optional<std::chrono::milliseconds> deaf) {
  Do([&] { m_state->interruption = THREAD::INTERRUPTION{count, deaf}; });
}

void ADAPTER::SetChatter(std::chrono::milliseconds interval) {
  Do([&] { m_state->SetChatter(interval); });
}

void ADAPTER::AddTap(TAP tap) {
  const std::lock_guard lock(m_mutex);
  std::vector<TAP> taps = m_taps != nullptr ? *m_taps : std::vector<TAP>();
  taps.push_back(std::move(tap));
  m_taps = Shared(std::move(taps));
}

void ADAPTER::SetListener(LISTENER listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = listener ? Shared(std::move(listener)) : nullptr;
}

COUNTERS ADAPTER::Counters() const {
  const std::lock_guard lock(m_mutex);
  return m_counters;
}

void ADAPTER::THREAD::Loop() {
  while (!m_owner.m_stop) {
    std::array<pollfd, 3> watched{{{m_owner.m_wake.Get(), POLLIN, 0},
                                   {m_pty.Plugged() ? m_pty.Master() : -1, POLLIN, 0},
                                   {m_near.Descriptor(), POLLIN, 0}}};
    timespec limit{};
    const auto wait = UntilNext(Now());
    if (wait) {
      limit.tv_sec = static_cast<time_t>(wait->count() / 1'000'000'000);
      limit.tv_nsec = static_cast<long>(wait->count() % 1'000'000'000);
    }
    if (ppoll(watched.data(), watched.size(), wait ? &limit : nullptr, nullptr) < 0) {
      continue;  // interrupted: signals are blocked here, so only a debugger does that
    }
    // Openings and closings first: what was sent before a closing is not for who opens next.
    if (watched[2].revents != 0) {
      ReadOpenings();
    }
    if (watched[0].revents != 0) {
      RunTasks();
    }
    if (m_pty.Plugged() && watched[1].fd == m_pty.Master() && watched[1].revents != 0) {
      ReadLine();
    }
    const TIME now = Now();
    DropPartial(now);
    ChatterDue(now);
    WriteDue(now);
  }
  if (m_pty.Plugged()) {
    static_cast<void>(Unplug());
  }
}

std::optional<std::chrono::nanoseconds> ADAPTER::THREAD::UntilNext(TIME now) const {
  TIME next = m_due.Next().value_or(TIME::max());
  if (m_reader.Waiting() > 0) {
    next = std::min(next, m_lastByte + kFrameGap);
  }
  if (m_chatter.count() > 0) {
    next = std::min(next, m_nextChatter);
  }
  if (next == TIME::max()) {
    return std::nullopt;
  }
  return std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(next - now));
}

void ADAPTER::THREAD::RunTasks() {
  std::uint64_t count = 0;
  static_cast<void>(!read(m_owner.m_wake.Get(), &count, sizeof count));
  while (true) {
    std::packaged_task<RESULT()> task;
    {
      const std::lock_guard lock(m_owner.m_mutex);
      if (m_owner.m_tasks.empty()) {
        return;
      }
      task = std::move(m_owner.m_tasks.front());
      m_owner.m_tasks.pop_front();
    }
    task();
  }
}

RESULT ADAPTER::THREAD::Plug(int number) {
  if (number < 0 || number > 999) {
    return RESULT::Error("an adapter's number is 0 to 999");
  }
  RESULT result = m_pty.Plug(m_owner.m_options.devDir + "/ttyUSB" + std::to_string(number));
  if (!result) {
    return result;
  }
  {
    const std::lock_guard lock(m_owner.m_mutex);
    m_owner.m_linkPath = m_pty.LinkPath();
    m_owner.m_nearPath = m_pty.NearPath();
  }
  m_near.Watch(m_pty.NearPath());
  Say("adapter " + m_pty.LinkPath() + " ready");
  return RESULT::Good(m_pty.LinkPath());
}

RESULT ADAPTER::THREAD::Unplug() {
  if (!m_pty.Plugged()) {
    return RESULT::Error("the adapter is not plugged in");
  }
  const std::string path = m_pty.LinkPath();
  m_near.Stop();
  m_due.Clear();
  m_reader.Drop();
  m_pty.Unplug();
  {
    const std::lock_guard lock(m_owner.m_mutex);
    m_owner.m_linkPath.clear();
    m_owner.m_nearPath.clear();
  }
  Say("adapter " + path + " unplugged");
  return RESULT::Good();
}

void ADAPTER::THREAD::ReadOpenings() {
  m_near.Read([this](bool isOpen) {
    if (isOpen) {
      Count([](COUNTERS& counters) { ++counters.openings; });
    } else {
      m_pty.FlushTowardNear();
    }
    Say("adapter " + m_pty.LinkPath() + (isOpen ? " opened" : " closed"));
  });
}

void ADAPTER::THREAD::ReadLine() {
  std::array<std::uint8_t, kReadSize> buffer;  // NOLINT: filled by read
  std::size_t size = buffer.size();
  if (interruption) {
    size = std::min(size, interruption->count - std::min(interruption->count, m_reader.Waiting()));
    if (size == 0) {
      return Interrupt(*interruption);
    }
  }
  const ssize_t count = read(m_pty.Master(), buffer.data(), size);
  if (count <= 0) {
    // We hold the near end open, so the far end has no end of its own; if it fails all the same, an
    // adapter that is gone is better than a loop that spins.
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      static_cast<void>(Unplug());
    }
    return;
  }
  m_lastByte = Now();
  Count([count](COUNTERS& counters) { counters.bytesIn += static_cast<std::uint64_t>(count); });
  for (Bytes& frame : m_reader.Feed(buffer.data(), static_cast<std::size_t>(count))) {
    Handle(std::move(frame));
  }
  if (interruption && interruption->count <= m_reader.Waiting()) {
    Interrupt(*interruption);
  }
}

void ADAPTER::THREAD::Interrupt(INTERRUPTION now) {
  interruption.reset();
  if (now.deaf) {
    Reset(*now.deaf);
  } else {
    static_cast<void>(Unplug());
  }
}

void ADAPTER::THREAD::Handle(Bytes frame) {
  const REQUEST request{++m_lastRequest, m_lastByte, std::move(frame)};
  Count([](COUNTERS& counters) { ++counters.requests; });
  REPLY reply;
  if (m_lastByte >= m_deafUntil) {
    std::optional<Bytes> answer;
    if (m_owner.m_rack != nullptr) {
      answer = m_owner.m_rack->Answer(request.Body());
    }
    if (answer) {
      reply.push_back({std::chrono::microseconds(0), Frame(*answer)});
    }
    if (const auto hook = Lent(m_owner.m_hook)) {
      if (std::optional<REPLY> other = (*hook)(request, answer)) {
        reply = std::move(*other);
      }
    }
    for (const std::string& effect : m_owner.m_faults.Apply(request, reply)) {
      Say("fault " + effect + " hit " + ToHex(request.frame));
    }
  }
  Tap(DIRECTION::kRequest, m_lastByte, request.frame);
  Count([&reply](COUNTERS& counters) { ++(reply.empty() ? counters.silences : counters.replies); });
  m_due.Add(reply, m_due.Carry(request.frame.size(), m_lastByte));
}

void ADAPTER::THREAD::Send(const Bytes& bytes) {
  m_due.Add({{std::chrono::microseconds(0), bytes}}, Now());
}

void ADAPTER::THREAD::Reset(std::chrono::milliseconds deaf) {
  m_due.Clear();
  m_reader.Drop();
  m_deafUntil = Now() + deaf;
  Say("controller reset");
  if (m_owner.m_rack != nullptr) {
    m_owner.m_rack->Reset();
  }
}

void ADAPTER::THREAD::SetChatter(std::chrono::milliseconds interval) {
  m_chatter = interval;
  m_nextChatter = Now() + interval;
}

void ADAPTER::THREAD::ChatterDue(TIME now) {
  constexpr std::size_t kMostBytes = 8;
  if (m_chatter.count() <= 0 || now < m_nextChatter) {
    return;
  }
  m_nextChatter = now + m_chatter;
  Bytes bytes(1 + m_random() % kMostBytes);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(m_random());
  }
  m_due.Add({{std::chrono::microseconds(0), std::move(bytes)}}, now);
}

void ADAPTER::THREAD::DropPartial(TIME now) {
  if (m_reader.Waiting() == 0 || now < m_lastByte + kFrameGap) {
    return;
  }
  const Bytes dropped = m_reader.Drop();
  Tap(DIRECTION::kRequest, now, dropped);
  Count([](COUNTERS& counters) { ++counters.partialFrames; });
  Say("adapter " + m_pty.LinkPath() + " dropped an unfinished request: " + ToHex(dropped));
}

void ADAPTER::THREAD::WriteDue(TIME now) {
  while (const std::optional<Bytes> bytes = m_due.Take(now)) {
    Write(*bytes);
    Tap(DIRECTION::kAnswer, now, *bytes);
  }
}

/// A serial port that nobody has open receives nothing.
bool ADAPTER::THREAD::SomebodyListens() {
  if (!m_near.IsOpen()) {
    ReadOpenings();  // one that came after the last look
  }
  return m_near.IsOpen();
}

/// What does not fit into the near end's buffer is lost, as on a line whose reader is too slow.
void ADAPTER::THREAD::Write(const Bytes& bytes) {
  std::size_t sent = 0;
  while (m_pty.Plugged() && SomebodyListens() && sent < bytes.size()) {
    const ssize_t count = write(m_pty.Master(), bytes.data() + sent, bytes.size() - sent);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    sent += static_cast<std::size_t>(count);
  }
  Count([&](COUNTERS& counters) {
    counters.bytesOut += sent;
    counters.bytesLost += bytes.size() - sent;
  });
}

void ADAPTER::THREAD::Say(const std::string& line) {
  if (const auto listener = Lent(m_owner.m_listener)) {
    (*listener)(line);
  }
}

void ADAPTER::THREAD::Tap(DIRECTION direction, TIME when, const Bytes& bytes) {
  if (const auto taps = Lent(m_owner.m_taps)) {
    for (const TAP& tap : *taps) {
      tap(direction, when, bytes);
    }
  }
}

}  // namespace sim
