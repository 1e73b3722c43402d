#include "app/LastWords.h"

#include "app/ExitCode.h"
#include "host/output/FileStore.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <initializer_list>
#include <iostream>
#include <new>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace app {

namespace {

/// The last message. Asks for no memory, so that a signal's handler may call it.
[[noreturn]] void EndWith(std::string_view text, std::string_view more = {}) {
    host::FileStore::RemoveUnfinished();
    for (const std::string_view part : {std::string_view("hierfit: "), text, more, std::string_view("\n")})
        [[maybe_unused]] const auto written = write(STDERR_FILENO, part.data(), part.size());
    _exit(kNotFitted);
}

/// The end of an exception that was thrown before main or while another leaves a function: a library that is refused
/// memory in a destructor throws one.
[[noreturn]] void OnTerminate() {
    try {
        if (const std::exception_ptr failure = std::current_exception()) std::rethrow_exception(failure);
    } catch (const std::bad_alloc&) {
        EndWith(kNoMemory);
    } catch (const std::exception& error) {
        EndWith("the run ended unexpectedly: ", error.what());
    } catch (...) {
    }
    EndWith("the run ended unexpectedly");
}

std::atomic<bool> gRefused = false;

void OnRefusal() {
    gRefused = true;
    throw std::bad_alloc();
}

/// A library that was refused memory may leave a pointer to nothing in what it was about to make.
void OnCrash(int signal) {
    if (gRefused) EndWith(kNoMemory);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Ahead of the libraries' own objects.
[[gnu::constructor(101)]] void HaveLastWords() {
    std::set_terminate(OnTerminate);
    std::set_new_handler(OnRefusal);
#ifndef __SANITIZE_ADDRESS__
    std::signal(SIGSEGV, OnCrash);
    std::signal(SIGABRT, OnCrash);
#endif
}

}  // namespace

void LeaveAtOnceIfLimited(int code) {
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
    std::cout.flush();
    std::fflush(nullptr);
    _exit(code);
}

}  // namespace app
