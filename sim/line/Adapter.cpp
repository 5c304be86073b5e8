#include "sim/line/Adapter.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
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
  return ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameters) == 0;
}

void Drain(int eventCounter) {
  std::uint64_t count = 0;
  while (::read(eventCounter, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

}  // namespace

/// What only the adapter's thread touches: the line and what is about to go out on it.
struct ADAPTER::THREAD {
  explicit THREAD(ADAPTER& adapter) : owner(adapter) {}

  void Loop();
  RESULT Plug(int number);
  RESULT Unplug();
  void Schedule(const REPLY& reply, TIME from);
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
  void WatchNear();
  void ReadNearEvents();
  void NearClosed();
  bool SomebodyListens();
  void ReadLine();
  void Interrupt(INTERRUPTION now);
  void Handle(Bytes frame);
  void DropPartial(TIME now);
  void ChatterDue(TIME now);
  void WriteDue(TIME now);
  std::chrono::nanoseconds TimeOnLine(std::size_t bytes) const;
  void Tap(DIRECTION direction, TIME when, const Bytes& bytes);
  void Write(const Bytes& bytes);
  void Say(const std::string& line);
  template <class CHANGE>
  void Count(CHANGE change) {
    const std::lock_guard lock(owner.m_mutex);
    change(owner.m_counters);
  }

  ADAPTER& owner;
  PTY pty;
  DESCRIPTOR nearEvents;  // inotify: who opens and closes the near end
  int nearOpen = 0;       // how many have it open now, besides ourselves
  FRAME_READER reader;
  TIME lastByte{};
  std::uint64_t lastRequest = 0;
  std::multimap<TIME, Bytes> due;  // equal times stay in the order in which they were scheduled
  TIME towardRackFree{};           // when the line has carried all bytes so far, with a baud rate
  TIME towardNearFree{};
  TIME deafUntil{};
  std::chrono::milliseconds chatter{0};
  TIME nextChatter{};
  std::minstd_rand random;  // the same nonsense in every run
};

ADAPTER::ADAPTER(RACK* rack, ADAPTER_OPTIONS options)
    : m_rack(rack),
      m_options(std::move(options)),
      m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_state(std::make_unique<THREAD>(*this)) {
  // Signals are for the program's own threads; this one must not be interrupted.
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  m_thread = std::thread([this] { Run(); });
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ADAPTER::~ADAPTER() {
  m_stop = true;
  const std::uint64_t one = 1;
  static_cast<void>(!::write(m_wake.Get(), &one, sizeof one));
  m_thread.join();
}

void ADAPTER::Run() {
  if (m_options.realTime && AskForRealTime())
    m_isRealTime.store(true, std::memory_order_relaxed);
  m_state->Loop();
}

RESULT ADAPTER::Call(std::function<RESULT()> task) {
  if (std::this_thread::get_id() == m_thread.get_id())
    return task();
  std::packaged_task<RESULT()> packaged(std::move(task));
  std::future<RESULT> done = packaged.get_future();
  {
    const std::lock_guard lock(m_mutex);
    m_tasks.push_back(std::move(packaged));
  }
  const std::uint64_t one = 1;
  static_cast<void>(!::write(m_wake.Get(), &one, sizeof one));
  return done.get();
}

RESULT ADAPTER::Plug(int number) {
  return Call([this, number] { return m_state->Plug(number); });
}

RESULT ADAPTER::Unplug() {
  return Call([this] { return m_state->Unplug(); });
}

void ADAPTER::Send(const Bytes& bytes) {
  static_cast<void>(Call([this, &bytes] {
    m_state->Schedule({{std::chrono::microseconds(0), bytes}}, std::chrono::steady_clock::now());
    return RESULT::Good();
  }));
}

bool ADAPTER::Plugged() const {
  const std::lock_guard lock(m_mutex);
  return !m_linkPath.empty();
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
  m_hook = hook ? std::make_shared<const REPLY_HOOK>(std::move(hook)) : nullptr;
}

void ADAPTER::ResetController(std::chrono::milliseconds deaf) {
  static_cast<void>(Call([this, deaf] {
    m_state->Reset(deaf);
    return RESULT::Good();
  }));
}

void ADAPTER::InterruptRequest(std::size_t count, std::optional<std::chrono::milliseconds> deaf) {
  static_cast<void>(Call([this, count, deaf] {
    m_state->interruption = THREAD::INTERRUPTION{count, deaf};
    return RESULT::Good();
  }));
}

void ADAPTER::SetChatter(std::chrono::milliseconds interval) {
  static_cast<void>(Call([this, interval] {
    m_state->SetChatter(interval);
    return RESULT::Good();
  }));
}

void ADAPTER::SetTap(TAP tap) {
  const std::lock_guard lock(m_mutex);
  m_tap = tap ? std::make_shared<const TAP>(std::move(tap)) : nullptr;
}

void ADAPTER::SetListener(LISTENER listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = listener ? std::make_shared<const LISTENER>(std::move(listener)) : nullptr;
}

COUNTERS ADAPTER::Counters() const {
  const std::lock_guard lock(m_mutex);
  return m_counters;
}

void ADAPTER::THREAD::Loop() {
  while (!owner.m_stop) {
    std::array<pollfd, 3> watched{{{owner.m_wake.Get(), POLLIN, 0},
                                   {pty.Plugged() ? pty.Master() : -1, POLLIN, 0},
                                   {nearEvents ? nearEvents.Get() : -1, POLLIN, 0}}};
    timespec limit{};
    const auto wait = UntilNext(std::chrono::steady_clock::now());
    if (wait) {
      limit.tv_sec = static_cast<time_t>(wait->count() / 1'000'000'000);
      limit.tv_nsec = static_cast<long>(wait->count() % 1'000'000'000);
    }
    if (::ppoll(watched.data(), watched.size(), wait ? &limit : nullptr, nullptr) < 0)
      continue;  // interrupted: signals are blocked here, so only a debugger does that
    // Openings and closings first: what was sent before a closing is not for who opens next.
    if (watched[2].revents != 0)
      ReadNearEvents();
    if (watched[0].revents != 0)
      RunTasks();
    if (pty.Plugged() && watched[1].fd == pty.Master() && watched[1].revents != 0)
      ReadLine();
    const TIME now = std::chrono::steady_clock::now();
    DropPartial(now);
    ChatterDue(now);
    WriteDue(now);
  }
  if (pty.Plugged())
    static_cast<void>(Unplug());
}

std::optional<std::chrono::nanoseconds> ADAPTER::THREAD::UntilNext(TIME now) const {
  TIME next = TIME::max();
  if (!due.empty())
    next = due.begin()->first;
  if (reader.Waiting() > 0)
    next = std::min(next, lastByte + kFrameGap);
  if (chatter.count() > 0)
    next = std::min(next, nextChatter);
  if (next == TIME::max())
    return std::nullopt;
  return std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(next - now));
}

void ADAPTER::THREAD::RunTasks() {
  Drain(owner.m_wake.Get());
  while (true) {
    std::packaged_task<RESULT()> task;
    {
      const std::lock_guard lock(owner.m_mutex);
      if (owner.m_tasks.empty())
        return;
      task = std::move(owner.m_tasks.front());
      owner.m_tasks.pop_front();
    }
    task();
  }
}

RESULT ADAPTER::THREAD::Plug(int number) {
  if (number < 0 || number > 999)
    return RESULT::Error("an adapter's number is 0 to 999");
  RESULT result = pty.Plug(owner.m_options.devDir + "/ttyUSB" + std::to_string(number));
  if (!result)
    return result;
  {
    const std::lock_guard lock(owner.m_mutex);
    owner.m_linkPath = pty.LinkPath();
    owner.m_nearPath = pty.NearPath();
  }
  WatchNear();
  Say("adapter " + pty.LinkPath() + " ready");
  return RESULT::Good(pty.LinkPath());
}

RESULT ADAPTER::THREAD::Unplug() {
  if (!pty.Plugged())
    return RESULT::Error("the adapter is not plugged in");
  const std::string path = pty.LinkPath();
  nearEvents.Close();
  nearOpen = 0;
  due.clear();
  reader.Drop();
  pty.Unplug();
  {
    const std::lock_guard lock(owner.m_mutex);
    owner.m_linkPath.clear();
    owner.m_nearPath.clear();
  }
  Say("adapter " + path + " unplugged");
  return RESULT::Good();
}

/// Without inotify the adapter works all the same; it only does not notice openings.
void ADAPTER::THREAD::WatchNear() {
  nearEvents = DESCRIPTOR(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (nearEvents && ::inotify_add_watch(nearEvents.Get(), pty.NearPath().c_str(),
                                        IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) < 0)
    nearEvents.Close();
}

void ADAPTER::THREAD::ReadNearEvents() {
  alignas(inotify_event) std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = ::read(nearEvents.Get(), buffer.data(), buffer.size())) > 0) {
    // One file is watched, so no event has a name behind it and all have the same size.
    for (std::size_t at = 0; at + sizeof(inotify_event) <= static_cast<std::size_t>(count);
         at += sizeof(inotify_event)) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
      if ((event->mask & IN_OPEN) != 0) {
        ++nearOpen;
        if (nearOpen == 1) {
          Count([](COUNTERS& counters) { ++counters.openings; });
          Say("adapter " + pty.LinkPath() + " opened");
        }
      }
      if ((event->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) != 0 && nearOpen > 0) {
        --nearOpen;
        if (nearOpen == 0)
          NearClosed();
      }
    }
  }
}

void ADAPTER::THREAD::NearClosed() {
  pty.FlushTowardNear();
  Say("adapter " + pty.LinkPath() + " closed");
}

void ADAPTER::THREAD::ReadLine() {
  std::array<std::uint8_t, kReadSize> buffer;  // NOLINT: filled by read
  std::size_t size = buffer.size();
  if (interruption) {
    size = std::min(size, interruption->count - std::min(interruption->count, reader.Waiting()));
    if (size == 0)
      return Interrupt(*interruption);
  }
  const ssize_t count = ::read(pty.Master(), buffer.data(), size);
  if (count <= 0) {
    // We hold the near end open, so the far end has no end of its own; if it fails all the same, an
    // adapter that is gone is better than a loop that spins.
    if (count == 0 || (errno != EAGAIN && errno != EINTR))
      static_cast<void>(Unplug());
    return;
  }
  lastByte = std::chrono::steady_clock::now();
  Count([count](COUNTERS& counters) { counters.bytesIn += static_cast<std::uint64_t>(count); });
  for (Bytes& frame : reader.Feed(buffer.data(), static_cast<std::size_t>(count)))
    Handle(std::move(frame));
  if (interruption && interruption->count <= reader.Waiting())
    Interrupt(*interruption);
}

void ADAPTER::THREAD::Interrupt(INTERRUPTION now) {
  interruption.reset();
  if (now.deaf)
    Reset(*now.deaf);
  else
    static_cast<void>(Unplug());
}

void ADAPTER::THREAD::Handle(Bytes frame) {
  const REQUEST request{++lastRequest, lastByte, std::move(frame)};
  std::shared_ptr<const REPLY_HOOK> hook;
  {
    const std::lock_guard lock(owner.m_mutex);
    ++owner.m_counters.requests;
    hook = owner.m_hook;
  }
  REPLY reply;
  if (lastByte >= deafUntil) {
    std::optional<Bytes> answer;
    if (owner.m_rack != nullptr)
      answer = owner.m_rack->Answer(request.Body());
    if (answer)
      reply.push_back({std::chrono::microseconds(0), Frame(*answer)});
    if (hook != nullptr) {
      if (std::optional<REPLY> other = (*hook)(request, answer))
        reply = std::move(*other);
    }
    for (const std::string& effect : owner.m_faults.Apply(request, reply))
      Say("fault " + effect + " hit " + ToHex(request.frame));
  }
  Tap(DIRECTION::kRequest, lastByte, request.frame);
  Count([&reply](COUNTERS& counters) { ++(reply.empty() ? counters.silences : counters.replies); });
  towardRackFree = std::max(towardRackFree, lastByte) + TimeOnLine(request.frame.size());
  Schedule(reply, towardRackFree);
}

/// Ten bits a byte: start bit, eight data bits, stop bit.
std::chrono::nanoseconds ADAPTER::THREAD::TimeOnLine(std::size_t bytes) const {
  if (owner.m_options.baud <= 0)
    return std::chrono::nanoseconds(0);
  return std::chrono::nanoseconds(static_cast<std::int64_t>(bytes) * 10 * 1'000'000'000 /
                                  owner.m_options.baud);
}

void ADAPTER::THREAD::Schedule(const REPLY& reply, TIME from) {
  for (const CHUNK& chunk : reply) {
    from += chunk.delay;
    if (owner.m_options.baud > 0) {
      towardNearFree = std::max(towardNearFree, from) + TimeOnLine(chunk.bytes.size());
      from = towardNearFree;
    }
    due.emplace(from + owner.m_options.latencyTimer, chunk.bytes);
  }
}

void ADAPTER::THREAD::Reset(std::chrono::milliseconds deaf) {
  due.clear();
  reader.Drop();
  deafUntil = std::chrono::steady_clock::now() + deaf;
  Say("controller reset");
  if (owner.m_rack != nullptr)
    owner.m_rack->Reset();
}

void ADAPTER::THREAD::SetChatter(std::chrono::milliseconds interval) {
  chatter = interval;
  nextChatter = std::chrono::steady_clock::now() + interval;
}

void ADAPTER::THREAD::ChatterDue(TIME now) {
  constexpr std::size_t kMostBytes = 8;
  if (chatter.count() <= 0 || now < nextChatter)
    return;
  nextChatter = now + chatter;
  Bytes bytes(1 + random() % kMostBytes);
  for (std::uint8_t& byte : bytes)
    byte = static_cast<std::uint8_t>(random());
  due.emplace(now, std::move(bytes));
}

void ADAPTER::THREAD::DropPartial(TIME now) {
  if (reader.Waiting() == 0 || now < lastByte + kFrameGap)
    return;
  const Bytes dropped = reader.Drop();
  Tap(DIRECTION::kRequest, now, dropped);
  Count([](COUNTERS& counters) { ++counters.partialFrames; });
  Say("adapter " + pty.LinkPath() + " dropped an unfinished request: " + ToHex(dropped));
}

void ADAPTER::THREAD::WriteDue(TIME now) {
  while (!due.empty() && due.begin()->first <= now) {
    Write(due.begin()->second);
    Tap(DIRECTION::kAnswer, now, due.begin()->second);
    due.erase(due.begin());
  }
}

/// A serial port that nobody has open receives nothing. Where openings cannot be watched, it is
/// taken to be open.
bool ADAPTER::THREAD::SomebodyListens() {
  if (nearOpen == 0 && nearEvents)
    ReadNearEvents();  // an opening that came after the last look
  return nearOpen > 0 || !nearEvents;
}

/// What does not fit into the near end's buffer is lost, as on a line whose reader is too slow.
void ADAPTER::THREAD::Write(const Bytes& bytes) {
  std::size_t sent = 0;
  while (pty.Plugged() && SomebodyListens() && sent < bytes.size()) {
    const ssize_t count = ::write(pty.Master(), bytes.data() + sent, bytes.size() - sent);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0)
      break;
    sent += static_cast<std::size_t>(count);
  }
  Count([&](COUNTERS& counters) {
    counters.bytesOut += sent;
    counters.bytesLost += bytes.size() - sent;
  });
}

void ADAPTER::THREAD::Say(const std::string& line) {
  std::shared_ptr<const LISTENER> listener;
  {
    const std::lock_guard lock(owner.m_mutex);
    listener = owner.m_listener;
  }
  if (listener != nullptr)
    (*listener)(line);
}

void ADAPTER::THREAD::Tap(DIRECTION direction, TIME when, const Bytes& bytes) {
  std::shared_ptr<const TAP> tap;
  {
    const std::lock_guard lock(owner.m_mutex);
    tap = owner.m_tap;
  }
  if (tap != nullptr)
    (*tap)(direction, when, bytes);
}

}  // namespace sim
