#include "app/StopSignal.h"

#include "app/ExitCode.h"
#include "host/output/FileStore.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <sys/time.h>
#include <unistd.h>

namespace app {

namespace {

/// Set in whichever thread the signal meets.
std::atomic<bool> gAsked = false;
static_assert(std::atomic<bool>::is_always_lock_free);

constexpr suseconds_t kPatience = 900'000;  // microseconds

[[noreturn]] void EndAtOnce() {
    host::FileStore::RemoveUnfinished();
    constexpr std::string_view kLast = "hierfit: stopped by the user\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, kLast.data(), kLast.size());
    _exit(kStopped);
}

void OnSignal(int) {
    if (gAsked.exchange(true)) EndAtOnce();
    const int met = errno;  // of the call that the signal came between
    const itimerval once = {{0, 0}, {0, kPatience}};
    setitimer(ITIMER_REAL, &once, nullptr);
    errno = met;
}

void OnTimeOut(int) {
    EndAtOnce();
}

}  // namespace

void StopSignal::Watch() {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = OnTimeOut;
    sigaction(SIGALRM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file beyond the allowed size is a failed write like any other
}

bool StopSignal::Asked() {
    return gAsked;
}

}  // namespace app
