#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace vorn {

/// Says where the messages of a client's bytes end. One read is one message, as it came; but in
/// text mode a full one, of 255 bytes, ends behind the last separator among them, and the rest
/// begins the next. A client that fills a read streams: for 0.2 s behind it one that ends in
/// mid-line was cut by the network, and waits for the rest of that line.
///
/// The worker's thread only.
class MESSAGE_CUTTER {
 public:
  /// Where it is empty, or the mode is not text, each read is a message.
  explicit MESSAGE_CUTTER(std::string separator) : m_separator(std::move(separator)) {}

  /// So many bytes the next read may take, with what was kept of the one before: 1 to 255.
  std::size_t Room() const;
  /// What a read has taken, at most Room(). The message; empty where its end is still to come. A
  /// pass takes `passUs` at least.
  std::string Take(const std::string& bytes, bool isText, std::int32_t passUs);
  /// In a pass in which nothing came: what was kept, when the stream is over; else nothing.
  std::string TakeLate();
  /// At the connection's end: what was kept.
  std::string TakeRest();
  bool HoldsRest() const { return !m_rest.empty(); }
  /// For the next client.
  void Clear();

 private:
  std::size_t End(bool isText, std::int32_t passUs);

  const std::string m_separator;
  std::string m_rest;               // read, and kept for the next message; under 255 bytes
  std::int32_t m_streamPasses = 0;  // for so many more the client is taken for one that streams
};

}  // namespace vorn
