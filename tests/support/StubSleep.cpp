/// The stand-in for the `sleep` command that the daemon's pauses run: the first `sleep` in PATH.
///
/// `sleep N` waits as many milliseconds as the file pause-N in the folder VORN_TEST_PAUSES says,
/// then for as long as the file hold-N is there. It notes its begin and its end as one line each in
/// the file record: "begin N" and the targets of its open descriptors (number=target), "end N".

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

namespace {

void Note(const std::string& folder, const std::string& line) {
  const std::string path = folder + "/record";
  const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  const std::string text = line + "\n";
  if (file < 0 || write(file, text.data(), text.size()) < 0) {
    std::perror(path.c_str());
  }
  if (file >= 0) {
    close(file);
  }
}

std::string OpenDescriptors() {
  std::string all;
  DIR* const folder = opendir("/proc/self/fd");
  if (folder == nullptr) {
    return all;
  }
  // cppcheck-suppress readdirCalled ; one thread
  while (const dirent* const entry = readdir(folder)) {
    const std::string name = entry->d_name;
    if (name[0] == '.' || name == std::to_string(dirfd(folder))) {
      continue;
    }
    char target[1024];
    const ssize_t length = readlink(("/proc/self/fd/" + name).c_str(), target, sizeof target);
    all +=
        " " + name + "=" + std::string(target, length > 0 ? static_cast<std::size_t>(length) : 0);
  }
  closedir(folder);
  return all;
}

void WaitMilliseconds(long milliseconds) {
  timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
  nanosleep(&time, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  const char* const folder = std::getenv("VORN_TEST_PAUSES");
  if (folder == nullptr || argc != 2) {
    std::fprintf(stderr, "sleep (stand-in): needs VORN_TEST_PAUSES and one argument\n");
    return 2;
  }
  const std::string base = folder;
  const std::string seconds = argv[1];
  Note(base, "begin " + seconds + OpenDescriptors());
  long milliseconds = 0;
  std::ifstream(base + "/pause-" + seconds) >> milliseconds;
  WaitMilliseconds(milliseconds);
  const std::string hold = base + "/hold-" + seconds;
  // An orphan ends by itself: the test that held it is gone.
  for (int looks = 0; access(hold.c_str(), F_OK) == 0 && looks < 60'000; ++looks) {
    WaitMilliseconds(2);
  }
  Note(base, "end " + seconds);
}
