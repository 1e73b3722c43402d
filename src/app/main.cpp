#include "app/ExitCode.h"
#include "app/Session.h"
#include "app/StopSignal.h"
#include "app/Terminal.h"
#include "host/output/FileStore.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

using namespace std::string_view_literals;

namespace {

/// A fit takes and gives back matrices of some megabytes many times over: the allocator is to keep such blocks, since
/// each that goes back to the system is cleared page by page when it is taken again.
void KeepFreedMemory() {
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
#endif
}

constexpr const char* kNoMemory = "there is not enough memory for this model and these data";

/// The end of an exception that nobody can catch, thrown before main or while another leaves a function: a library that
/// is refused memory in a destructor throws one. The message is written without asking for memory.
[[noreturn]] void OnTerminate() {
    host::FileStore::RemoveUnfinished();
    const auto say = [](std::string_view text) {
        [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
    };
    say("hierfit: ");
    try {
        if (const std::exception_ptr failure = std::current_exception()) std::rethrow_exception(failure);
        say("the run ended unexpectedly");
    } catch (const std::bad_alloc&) {
        say(kNoMemory);
    } catch (const std::exception& error) {
        say("the run ended unexpectedly: ");
        say(error.what());
    } catch (...) {
        say("the run ended unexpectedly");
    }
    say("\n");
    _exit(app::kNotFitted);
}

volatile std::sig_atomic_t gRefused = 0;

void OnRefusal() {
    gRefused = 1;
    throw std::bad_alloc();
}

/// A library that was refused memory may leave a pointer to nothing in what it was about to make.
void OnCrash(int signal) {
    if (gRefused) {
        host::FileStore::RemoveUnfinished();
        for (const std::string_view text : {"hierfit: "sv, std::string_view(kNoMemory), "\n"sv})
            [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
        _exit(app::kNotFitted);
    }
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

/// However the program ends, no file is left half written.
struct Tidy {
    ~Tidy() { host::FileStore::RemoveUnfinished(); }
};

int Run(int argc, char** argv) {
    const Tidy tidy;
    app::StopSignal::Watch();
    app::Options options;
    try {
        if (const std::optional<int> done = app::ReadCommandLine(argc, argv, options)) return *done;
        return app::RunTask(options);
    } catch (const app::Failure& failure) {
        app::Complain(failure.fText);
        return failure.fCode;
    } catch (const std::bad_alloc&) {
        app::Complain(kNoMemory);
        return app::kNotFitted;
    } catch (const std::exception& error) {
        app::Complain(std::string("the run ended unexpectedly: ") + error.what());
        return app::kNotFitted;
    }
}

/// Where memory is limited, the linear algebra library's own threads may wait for ever for some, and an orderly exit
/// for them.
void LeaveAtOnceIfLimited(int code) {
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
    std::cout.flush();
    std::fflush(nullptr);
    _exit(code);
}

}  // namespace

int main(int argc, char** argv) {
    KeepFreedMemory();
    const int code = Run(argc, argv);
    LeaveAtOnceIfLimited(code);
    return code;
}
