#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

namespace vorn {

/// Says where the messages of a client's bytes end. One read is one message, as it came; but in
/// text mode a full one, of 255 bytes, ends behind the last separator among them, and the rest
/// begins the next. A client that fills a read streams, until nothing has come of it for 0.2 s: one
/// that ends in mid-line then was cut by the network, and waits for the rest of that line. Time in
/// which nobody has looked for more ends no stream.
///
/// The worker's thread only.
class MESSAGE_CUTTER {
 public:
  using TIME = std::chrono::steady_clock::time_point;

  /// Where it is empty, or the mode is not text, each read is a message.
  explicit MESSAGE_CUTTER(std::string separator) : m_separator(std::move(separator)) {}

  /// So many bytes the next read may take, with what was kept of the one before: 1 to 255.
  std::size_t Room() const;
  /// What a read has taken, at most Room(). The message; empty where its end is still to come.
  std::string Take(const std::string& bytes, bool isText, TIME now);
  /// In a pass in which nothing came: what was kept, when the stream is over; else nothing.
  std::string TakeLate(TIME now);
  /// From when on a pass in which nothing comes ends the stream; TIME::max() where there is none.
  TIME LateFrom() const { return m_streams ? m_streamsUntil : TIME::max(); }
  /// At the connection's end: what was kept.
  std::string TakeRest();
  bool HoldsRest() const { return !m_rest.empty(); }
  /// For the next client.
  void Clear();

 private:
  std::size_t End(bool isText, TIME now);

  const std::string m_separator;
  std::string m_rest;  // read, and kept for the next message; under 255 bytes
  bool m_streams = false;
  TIME m_streamsUntil{};  // at the least, where it does
};

}  // namespace vorn
