/// Loaded into the daemon in front of the C library, where the tests run on a desk machine: its
/// reads of a line that has nothing to say take some two or three times as long as on the board.
///
/// The daemon's reply limit is a number of reads. A desk machine makes them in some 50 ms, in which
/// a kernel with other work may not have carried the request and the reply through the
/// pseudo-terminal: the daemon would be right to find a timeout, and a test that is about something
/// else would fail.

#include <dlfcn.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <ctime>

namespace {

using READ = ssize_t (*)(int, void*, std::size_t);

/// What would have been called: a sanitizer's, which calls the C library's, or the latter at once.
READ NextRead() {
  static const auto kNext = reinterpret_cast<READ>(dlsym(RTLD_NEXT, "read"));
  return kNext;
}

constexpr int kReadsPerPause = 1000;
constexpr timespec kPause{0, 1'000'000};

/// What the daemon starts reads as ever, and may be of another architecture.
__attribute__((constructor)) void LoadIntoNoChild() {
  unsetenv("LD_PRELOAD");
}

/// Reads in a row that brought nothing.
thread_local int emptyReads = 0;

}  // namespace

// names
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t count) {
  const ssize_t result = NextRead()(descriptor, buffer, count);
  emptyReads = result > 0 ? 0 : emptyReads + 1;
  if (emptyReads == kReadsPerPause) {
    emptyReads = 0;
    nanosleep(&kPause, nullptr);
  }
  return result;
}
