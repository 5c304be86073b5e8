#pragma once

#include "thread/UniqueFd.h"
#include "vorn/bus/Line.h"

#include <unistd.h>

#include <cstdio>

namespace vorn {

/// The `ttyUSB` devices in /dev as full paths, in the order of `ls`: ttyUSB10 comes before ttyUSB2.
/// Nothing says that an entry is a device; opening it shows. Empty when there is none, or when the
/// listing cannot be run.
std::list<std::string> GetUSBDevices();

/// The same from a listing's output. It is read in pieces of at most 9 characters: an entry longer
/// than 8 characters gives two bogus paths.
std::list<std::string> ReadDeviceListing(FILE* listing);

/// The tty of a USB serial adapter. Non-blocking for the whole of its life: every read is a poll.
class SERIAL_PORT final : public LINE {
 public:
  std::list<std::string> Search() override;
  bool Open(const std::string& path) override;
  int SetUp() override;
  ssize_t Read(std::uint8_t* bytes, std::size_t count) override {
    return read(m_tty.Get(), bytes, count);
  }
  ssize_t Write(const std::uint8_t* bytes, std::size_t count) override {
    return write(m_tty.Get(), bytes, count);
  }
  void Close() override;

 private:
  UNIQUE_FD m_tty;
  bool m_hasRefused = false;  // its settings
  std::list<UNIQUE_FD> m_aside;
};

}  // namespace vorn
