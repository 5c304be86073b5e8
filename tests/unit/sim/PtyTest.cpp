#include "sim/line/Pty.h"
#include "tests/unit/sim/SimSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>

#include <fstream>

namespace sim {
namespace {

TEST(Pty, MakesALinkToItsNearEndAndRemovesIt) {
  const vorn::unit::FOLDER folder;
  const std::string link = folder.File("ttyUSB0");
  {
    PTY pty;
    ASSERT_TRUE(pty.Plug(link)) << pty.LinkPath();
    EXPECT_EQ(std::filesystem::read_symlink(link).string(), pty.NearPath());
    EXPECT_TRUE(NEAR_END(link).Open());
  }
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(Pty, RefusesANameThatExists) {
  const vorn::unit::FOLDER folder;
  const std::string path = folder.File("ttyUSB0");
  std::ofstream(path) << "precious";
  PTY pty;
  const RESULT result = pty.Plug(path);
  EXPECT_FALSE(result);
  EXPECT_EQ(result.text, "cannot make " + path + ": File exists (take another number)");
  EXPECT_FALSE(pty.Plugged());
  std::string text;
  std::ifstream(path) >> text;
  EXPECT_EQ(text, "precious");
}

TEST(Pty, SaysThatALinkInTheWayIsDead) {
  const vorn::unit::FOLDER folder;
  const std::string path = folder.File("ttyUSB0");
  std::filesystem::create_symlink("/nowhere/at/all", path);
  PTY pty;
  const RESULT result = pty.Plug(path);
  EXPECT_EQ(result.text,
            "cannot make " + path +
                ": File exists (a link to /nowhere/at/all, which is gone: remove it, or "
                "take another number)");
  EXPECT_EQ(std::filesystem::read_symlink(path), "/nowhere/at/all");
}

TEST(Pty, LeavesALinkThatSomebodyElsePutInItsPlace) {
  const vorn::unit::FOLDER folder;
  const std::string path = folder.File("ttyUSB0");
  PTY pty;
  ASSERT_TRUE(pty.Plug(path));
  std::filesystem::remove(path);
  std::filesystem::create_symlink("/dev/null", path);
  pty.Unplug();
  EXPECT_EQ(std::filesystem::read_symlink(path), "/dev/null");
}

TEST(Pty, IsRawFromBirthAndCloseOnExec) {
  const vorn::unit::FOLDER folder;
  PTY pty;
  ASSERT_TRUE(pty.Plug(folder.File("ttyUSB0")));
  EXPECT_NE(fcntl(pty.Master(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(pty.Master(), F_GETFL) & O_NONBLOCK, 0);
  const NEAR_END near(pty.LinkPath());
  termios settings{};
  ASSERT_EQ(tcgetattr(near.Get(), &settings), 0);
  EXPECT_EQ(settings.c_lflag & (ECHO | ICANON | ISIG), 0U);
  EXPECT_EQ(settings.c_oflag & OPOST, 0U);
}

}  // namespace
}  // namespace sim
