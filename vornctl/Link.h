#pragma once

#include "client/CaeSession.h"
#include "client/Delivery.h"
#include "client/IoLine.h"
#include "client/Session.h"
#include "vornctl/Output.h"
#include "vornctl/Settings.h"

#include <poll.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

/// A command was broken off by a signal. Thrown where it waits.
struct INTERRUPTED {
  int signal;
};
/// From here on the signal does not end the program: it is blocked, and let in where a command
/// waits, which it ends. SIGINT, SIGTERM or SIGHUP; one that is ignored stays so.
void LetSignalEndCommand(int signal);

/// The program's connections to the daemon, made when they are wanted and kept to its end, and the
/// loop that runs while a command waits. Everything on the program's only thread.
///
/// The functions that need an interface throw FAILURE where it cannot be had: kTaken, kNotReached.
class LINK {
 public:
  using ON_BLOCK = std::function<void(const client::BLOCK_VALUE& value, const std::string& line)>;
  using ON_REFUSED = std::function<void(client::DELIVERY::NUMBER number, const std::string& line)>;

  /// What is looked at beside the connections while the loop runs.
  struct SOURCE {
    int descriptor = -1;
    short events = 0;
    std::function<void(short revents)> handle;
  };

  using LISTENERS = std::list<ON_BLOCK>;
  /// Somebody who hears of blocks, until it is destroyed.
  class [[nodiscard]] LISTENER {
   public:
    LISTENER(LISTENERS& listeners, ON_BLOCK handler)
        : m_listeners(listeners), m_place(listeners.insert(listeners.end(), std::move(handler))) {}
    ~LISTENER() { m_listeners.erase(m_place); }
    LISTENER(const LISTENER&) = delete;
    LISTENER& operator=(const LISTENER&) = delete;

   private:
    LISTENERS& m_listeners;
    LISTENERS::iterator m_place;
  };

  LINK(const SETTINGS& settings, OUTPUT& output);
  LINK(const LINK&) = delete;
  LINK& operator=(const LINK&) = delete;
  ~LINK() = default;

  /// From here on a connection that is lost is tried for again, for good. Before the first is
  /// opened.
  void KeepTrying() { m_keepsTrying = true; }
  /// Waits for the first, as long as the settings say; then for the others no longer than they take
  /// where they are free: whether they have come says IsReady. All are tried at once.
  void Open(const std::vector<client::INTERFACE>& required,
            const std::vector<client::INTERFACE>& wished = {});
  /// The same for one of which it is enough to know how it stands.
  client::TROUBLE Try(const std::vector<client::INTERFACE>& interfaces);
  bool IsReady(client::INTERFACE interface) const;
  client::TROUBLE Trouble(client::INTERFACE interface) const;
  /// Why it is not ready, for people, and the status that goes with it.
  FAILURE FailureOf(client::INTERFACE interface) const;
  /// Leaves it to others. What was sent is taken first.
  void Leave(client::INTERFACE interface);
  /// All of them.
  void LeaveAll();

  /// Asks on CAE and waits for the answer. Throws FAILURE where it is not kDone.
  client::CAE_RESULT Ask(const client::CAE_REQUEST& request);
  /// The same, whatever the answer.
  client::CAE_RESULT AskAnything(const client::CAE_REQUEST& request);

  /// The kinds of all cards, from CAE: asked once, and again after ForgetCards.
  const client::CARD_LIST& Cards();
  void ForgetCards() { m_cards.reset(); }
  /// From the settings, else from CAE.
  client::CARD_KIND KindOf(int address);
  /// The same without asking: nothing where nobody has told.
  std::optional<client::CARD_KIND> KnownKindOf(int address) const;

  /// Sends a line on IO, which must be open. Waits only where many wait already.
  client::DELIVERY::NUMBER Send(const std::string& line);
  /// Lines of which it is not known yet what became of them.
  std::size_t Unsettled() const;
  /// Of those of a connection that was lost it never will be.
  void ForgetUnsettled();
  /// What is known of the lines that were sent.
  enum class PROOF { kChecked, kTaken, kSent };
  /// Waits until all that can be known of them is: with MON that the daemon has taken them, with
  /// CAE, too, that it refused none. Throws FAILURE, kTimeout, where it does not take them.
  PROOF Settle();
  void OnRefused(ON_REFUSED handler) { m_onRefused = std::move(handler); }

  /// IO is ready no more: others may set outputs now.
  void OnIoLost(std::function<void()> handler) { m_onIoLost = std::move(handler); }

  /// Input changes, and the answers to AskLastInput: from IO, or, where that is not ready, from
  /// MON.
  LISTENER Listen(ON_BLOCK handler) { return {m_listeners, std::move(handler)}; }
  /// Whole lines of an interface, for those who show them as they came.
  using ON_ANY_LINE = std::function<void(client::INTERFACE interface, const std::string& line)>;
  void OnAnyLine(ON_ANY_LINE handler) { m_onAnyLine = std::move(handler); }

  /// Runs the loop until it holds; false when the limit comes first. Throws FAILURE, kNotReached,
  /// where one of `needed` is lost meanwhile, and INTERRUPTED after a signal of those above.
  bool RunUntil(const std::function<bool()>& holds, client::TIME limit,
                const std::vector<client::INTERFACE>& needed = {});
  /// The same for what should be quick: a terminal shows after a second that it is waited for.
  bool AwaitQuick(const std::string& what, const std::function<bool()>& holds, client::TIME limit,
                  const std::vector<client::INTERFACE>& needed = {});
  /// Does what can be done at once.
  void Look() { Turn(client::CLOCK::now()); }
  /// The loop looks at it, too, until ClearSources.
  void AddSource(SOURCE source) { m_sources.push_back(std::move(source)); }
  void ClearSources() { m_sources.clear(); }
  /// The loop tells the output, too, when nobody reads it any more.
  void LookAtReader(bool looks) { m_looksAtReader = looks; }

  const SETTINGS& Settings() const { return m_settings; }

 private:
  client::SESSION_SETTINGS SessionSettings(client::INTERFACE interface) const;
  client::SESSION* Find(client::INTERFACE interface) const;
  client::SESSION& Get(client::INTERFACE interface);
  void Begin(client::INTERFACE interface);
  bool IsDecided(const client::SESSION& session, client::TIME began) const;
  void CheckLine(const std::string& line, client::INTERFACE interface) const;
  void TakeLine(client::INTERFACE interface, std::string_view line);
  void Turn(client::TIME limit);
  void ShowProgress(const std::vector<client::INTERFACE>& awaited, client::TIME began);

  const SETTINGS& m_settings;
  OUTPUT& m_output;
  std::unique_ptr<client::CAE_SESSION> m_cae;
  std::unique_ptr<client::SESSION> m_io;
  std::unique_ptr<client::SESSION> m_mon;
  std::optional<client::CARD_LIST> m_cards;
  client::DELIVERY m_delivery;
  client::DELIVERY::NUMBER m_settled = 0;
  LISTENERS m_listeners;
  std::function<void()> m_onIoLost;
  ON_REFUSED m_onRefused;
  ON_ANY_LINE m_onAnyLine;
  std::vector<SOURCE> m_sources;
  bool m_keepsTrying = false;
  bool m_looksAtReader = false;
};

}  // namespace ctl
