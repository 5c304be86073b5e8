// What depends on the machine and on the file as such.

#include "checkconf/Loading.h"
#include "tests/unit/checkconf/Checked.h"
#include "thread/UniqueFd.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace vorn {

namespace {

using checkconf::CheckConfig;
using unit::Checked;
using unit::FOLDER;
using unit::GoodConfig;
using unit::Ids;
using unit::Replaced;

using IDS = std::vector<std::string>;

/// A socket that listens on a port which the system picks.
class TAKEN_PORT {
 public:
  TAKEN_PORT() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(m_socket.Get(), 1), 0);
    EXPECT_EQ(getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    m_port = ntohs(address.sin_port);
  }
  std::string Port() const { return std::to_string(m_port); }

 private:
  UNIQUE_FD m_socket;
  std::uint16_t m_port = 0;
};

/// Only what is about the log: the ports of the good file may be in use where the tests run.
IDS LogIds(const checkconf::CHECK_RESULT& result) {
  IDS ids;
  for (const std::string& id : Ids(result)) {
    if (id.find("port-taken") == std::string::npos) {
      ids.push_back(id);
    }
  }
  return ids;
}

TEST(CheckConfig, TellsAPortThatIsInUse) {
  const FOLDER folder;
  const TAKEN_PORT taken;
  const std::string text = Replaced(GoodConfig(folder), "5001", taken.Port());
  const IDS ids = Ids(Checked(folder, text, true));
  EXPECT_NE(std::find(ids.begin(), ids.end(), "9:26 port-taken"), ids.end());
  EXPECT_EQ(Ids(Checked(folder, text, false)), IDS());
}

TEST(CheckConfig, TellsAMissingLogFolder) {
  const FOLDER folder;
  const std::string text = Replaced(GoodConfig(folder), "/vorn.log", "/none/vorn.log");
  EXPECT_EQ(LogIds(Checked(folder, text, true)), IDS{"3:26 log-folder-missing"});
}

TEST(CheckConfig, TellsALogFileThatIsAFolder) {
  const FOLDER folder;
  std::filesystem::create_directory(folder.File("vorn.log"));
  EXPECT_EQ(LogIds(Checked(folder, GoodConfig(folder), true)), IDS{"3:26 log-file-is-folder"});
}

TEST(CheckConfig, IsContentWithALogThatCanBeWritten) {
  const FOLDER folder;
  EXPECT_EQ(LogIds(Checked(folder, GoodConfig(folder), true)), IDS());
  unit::WriteFile(folder.File("vorn.log"), "");
  EXPECT_EQ(LogIds(Checked(folder, GoodConfig(folder), true)), IDS());
}

/// The checks as made for another user than that of the tests. The folder's own bits are opened.
class ForAnotherUser : public testing::Test {
 protected:
  ForAnotherUser() {
    chmod(m_folder.Path().c_str(), 0755);
    unit::WriteFile(m_folder.File("vornconf.xml"),
                    Replaced(GoodConfig(m_folder), "/vorn.log", "/log/vorn.log"));
    std::filesystem::create_directory(m_folder.File("log"));
    SetMode("log", 0777);
  }
  void SetMode(const char* name, mode_t mode) {
    ASSERT_EQ(chmod(m_folder.File(name).c_str(), mode), 0);
  }
  IDS Check() { return LogIds(CheckConfig(m_folder.File("vornconf.xml"), {m_user, true})); }

  FOLDER m_folder;
  // Nobody's: not root, not that of the tests, no group of theirs.
  checkconf::USER m_user{"other", 4000000001U, {4000000001U}};
};

TEST_F(ForAnotherUser, FindsNothingWhereItMayDoEverything) {
  EXPECT_EQ(Check(), IDS());
}

TEST_F(ForAnotherUser, TellsALogFolderThatItMayNotWriteTo) {
  SetMode("log", 0755);
  EXPECT_EQ(Check(), IDS{"3:26 log-folder-not-writable"});
}

TEST_F(ForAnotherUser, TellsALogFolderThatItMayNotReach) {
  std::filesystem::create_directory(m_folder.File("log/deep"));
  SetMode("log/deep", 0777);
  SetMode("log", 0700);
  unit::WriteFile(m_folder.File("vornconf.xml"),
                  Replaced(GoodConfig(m_folder), "/vorn.log", "/log/deep/vorn.log"));
  EXPECT_EQ(Check(), IDS{"3:26 log-folder-not-writable"});
}

TEST_F(ForAnotherUser, TellsALogFileThatItMayNotWriteTo) {
  unit::WriteFile(m_folder.File("log/vorn.log"), "");
  SetMode("log/vorn.log", 0644);
  EXPECT_EQ(Check(), IDS{"3:26 log-file-not-writable"});
}

TEST_F(ForAnotherUser, GoesByTheGroupToo) {
  SetMode("log", 0770);
  EXPECT_EQ(Check(), IDS{"3:26 log-folder-not-writable"});
  struct stat status {};
  ASSERT_EQ(stat(m_folder.File("log").c_str(), &status), 0);
  m_user.groups.push_back(status.st_gid);
  EXPECT_EQ(Check(), IDS());
}

TEST_F(ForAnotherUser, TellsAFileThatItMayNotRead) {
  SetMode("vornconf.xml", 0600);
  EXPECT_EQ(Check(), IDS{"0:0 not-readable-by-user"});
}

TEST(CheckConfig, TellsThatThereIsNoFile) {
  const FOLDER folder;
  for (const char* name : {"none.xml", "none/vornconf.xml"}) {
    const checkconf::CHECK_RESULT result =
        CheckConfig(folder.File(name), {checkconf::CurrentUser(), true});
    EXPECT_EQ(Ids(result), IDS{"0:0 not-found"});
    EXPECT_NE(result.config.errorText, kNoConfigError);
  }
}

TEST(CheckConfig, TellsWhatIsNoFile) {
  const FOLDER folder;
  ASSERT_EQ(mkfifo(folder.File("pipe").c_str(), 0600), 0);
  for (const std::string& path : {folder.Path(), folder.File("pipe"), std::string("/dev/zero")}) {
    EXPECT_EQ(Ids(CheckConfig(path, {checkconf::CurrentUser(), true})), IDS{"0:0 not-regular"});
  }
}

TEST(CheckConfig, TellsAFileThatCannotBeReached) {
  const FOLDER folder;
  const std::string loop = folder.File("loop");
  ASSERT_EQ(symlink(loop.c_str(), loop.c_str()), 0);
  EXPECT_EQ(Ids(CheckConfig(loop, {checkconf::CurrentUser(), true})), IDS{"0:0 not-readable"});
}

TEST(CheckConfig, ReadsAFileOfTheLargestSizeAndNoneAbove) {
  const FOLDER folder;
  std::string text = GoodConfig(folder);
  text.resize(checkconf::kLargestFile, '\n');
  EXPECT_EQ(Ids(Checked(folder, text)), IDS());
  EXPECT_EQ(Ids(Checked(folder, text + "\n")), IDS{"0:0 too-large"});
}

TEST(CheckConfig, LeavesOutWhatIsTooMuchAndSaysSo) {
  const FOLDER folder;
  std::string elements;
  for (std::size_t i = 0; i < checkconf::FINDINGS::kMostFindings + 5; ++i) {
    elements += "<Unknown/>";
  }
  const checkconf::CHECK_RESULT result =
      Checked(folder, Replaced(GoodConfig(folder), "<Speed", elements + "<Speed"));
  ASSERT_EQ(result.findings.size(), checkconf::FINDINGS::kMostFindings + 1);
  EXPECT_EQ(result.findings.back().kind, checkconf::KIND::kTooManyFindings);
  EXPECT_EQ(result.findings.back().text, "5 further findings are left out");
  EXPECT_EQ(result.Count(checkconf::SEVERITY::kError), 1U);
}

}  // namespace

}  // namespace vorn
