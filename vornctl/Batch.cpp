#include "vornctl/Batch.h"

#include "client/Descriptor.h"
#include "vornctl/Finally.h"
#include "vornctl/Interpreter.h"
#include "vornctl/Words.h"
#include "vornctl/commands/Commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>

namespace ctl {

namespace {

/// A line of a batch has a few words; one that is longer than this is none.
constexpr std::size_t kLongestLine = 65536;
/// So many lines go by between two looks at what comes back.
constexpr int kLinesBetweenLooks = 64;

class BATCH {
 public:
  BATCH(CONTEXT& context, std::string name, int descriptor, bool keepGoing)
      : m_context(context),
        m_interpreter(context, USE::kInSeries),
        m_name(std::move(name)),
        m_descriptor(descriptor),
        m_keepGoing(keepGoing) {}

  EXIT_STATUS Run() {
    m_context.series.isOn = true;
    const FINALLY end([this] { m_context.series.isOn = false; });
    bool isLine = true;
    while (isLine && !IsEnough()) {
      isLine = Try([&] {
        const bool isThere = ReadLine();
        if (isThere) {
          RunLine();
        }
        return isThere;
      });
    }
    Settle();
    return m_status;
  }

 private:
  bool IsEnough() const { return m_status != EXIT_STATUS::kDone && !m_keepGoing; }

  void Fail(int line, const FAILURE& failure) {
    m_context.output.Fail(failure, m_name + (line > 0 ? ":" + std::to_string(line) : ""));
    if (m_status == EXIT_STATUS::kDone) {
      m_status = failure.Status();
    }
  }

  /// What it answers; true where it fails: there may be more.
  bool Try(const std::function<bool()>& act) {
    try {
      return act();
    } catch (const FAILURE& failure) {
      // What was refused before stands before.
      Settle();
      Fail(m_number, failure);
    }
    return !m_isUnreadable;
  }

  /// Waits until it is known what became of all lines so far.
  void Settle() {
    try {
      for (const REFUSED_LINE& refused : SettleSeries(m_context)) {
        Fail(refused.line, refused.failure);
      }
    } catch (const FAILURE& failure) {
      Fail(m_number, failure);
    }
  }

  void RunLine() {
    constexpr std::size_t kMostUnsettled = 1024;
    m_context.series.line = ++m_number;
    const std::vector<std::string> words = SplitWords(m_line);
    if (words.empty()) {
      return;
    }
    const COMMAND* command = FindCommand(words.front());
    if (command == nullptr || !command->sendsOnly || m_context.link.Unsettled() >= kMostUnsettled) {
      Settle();
    }
    if (IsEnough()) {
      return;
    }
    m_interpreter.Run(words);
    if (m_number % kLinesBetweenLooks == 0) {
      m_context.link.Look();
    }
    if (!m_context.refused.empty()) {
      Settle();
    }
  }

  /// False at the end. While there is nothing to read, what is under way is looked after.
  bool ReadLine() {
    for (;;) {
      const std::size_t end = m_read.find('\n', m_at);
      if (end != std::string::npos) {
        m_line.assign(m_read, m_at, end - m_at);
        m_at = end + 1;
        return true;
      }
      m_read.erase(0, m_at);
      m_at = 0;
      if (m_read.size() > kLongestLine) {
        m_isUnreadable = true;
        throw FAILURE(EXIT_STATUS::kUsage, "a line has no end: is it a text?");
      }
      if (m_isAtEnd) {
        m_line = std::exchange(m_read, {});
        return !m_line.empty();
      }
      Fill();
      if (IsEnough()) {
        return false;
      }
    }
  }

  void Fill() {
    pollfd input = {m_descriptor, POLLIN, 0};
    if (poll(&input, 1, 0) == 0) {
      Settle();
      if (IsEnough()) {
        return;
      }
      bool isThere = false;
      m_context.link.AddSource({m_descriptor, POLLIN, [&](short /*events*/) { isThere = true; }});
      const FINALLY clear([this] { m_context.link.ClearSources(); });
      m_context.link.RunUntil([&] { return isThere; }, client::TIME::max());
    }
    std::array<char, kLongestLine> bytes{};
    const ssize_t count = read(m_descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR && errno != EAGAIN) {
      m_isUnreadable = true;
      throw FAILURE(EXIT_STATUS::kUsage, std::strerror(errno));
    }
    if (count > 0) {
      m_read.append(bytes.data(), static_cast<std::size_t>(count));
    }
    m_isAtEnd = count == 0;
  }

  CONTEXT& m_context;
  INTERPRETER m_interpreter;
  const std::string m_name;
  const int m_descriptor;
  const bool m_keepGoing;
  std::string m_read;
  std::size_t m_at = 0;
  std::string m_line;
  int m_number = 0;
  bool m_isAtEnd = false;
  bool m_isUnreadable = false;
  EXIT_STATUS m_status = EXIT_STATUS::kDone;
};

}  // namespace

EXIT_STATUS RunBatch(CONTEXT& context, const std::string& file, bool keepGoing) {
  if (file.empty() || file == "-") {
    return BATCH(context, "standard input", STDIN_FILENO, keepGoing).Run();
  }
  const client::DESCRIPTOR opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!opened) {
    throw FAILURE(EXIT_STATUS::kUsage, file + ": " + std::strerror(errno));
  }
  return BATCH(context, file, opened.Get(), keepGoing).Run();
}

}  // namespace ctl
