#include "app/StopSignal.h"

#include "app/ExitCode.h"

#include <csignal>
#include <unistd.h>

namespace app {

namespace {

volatile std::sig_atomic_t gAsked = 0;

void OnSignal(int) {
    if (gAsked) _exit(kStopped);
    gAsked = 1;
}

}  // namespace

void StopSignal::Watch() {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file beyond the allowed size is a failed write like any other
}

bool StopSignal::Asked() {
    return gAsked != 0;
}

}  // namespace app
