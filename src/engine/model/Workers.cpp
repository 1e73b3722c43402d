#include "engine/model/Workers.h"

#include "engine/model/StopScope.h"

#include <algorithm>
#include <exception>
#include <system_error>

namespace engine {

namespace {

/// The system looks it up in a file each time.
int MachineThreads() {
    static const int count = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return count;
}

}  // namespace

Workers::Workers(int threads) : fThreads(threads > 0 ? threads : MachineThreads()) {}

Workers::~Workers() {
    for (auto& thread : fCrew)
        thread.request_stop();
    fWake.notify_all();
}

void Workers::Start() {
    try {
        for (int i = 1; i < fThreads; ++i)
            fCrew.emplace_back([this](const std::stop_token& stop) { Serve(stop); });
    } catch (const std::system_error&) {
        // The machine has no more threads to give: those there are do the work, with the same result.
    }
}

void Workers::Drain() {
    for (int chunk = fNext++; chunk < fChunks; chunk = fNext++)
        (*fWork)(chunk);
}

void Workers::Serve(const std::stop_token& stop) {
    long seen = 0;
    for (;;) {
        {
            std::unique_lock lock(fMutex);
            if (!fWake.wait(lock, stop, [&] { return fRound != seen; })) return;
            seen = fRound;
        }
        Drain();
        std::lock_guard lock(fMutex);
        if (--fBusy == 0) fDone.notify_one();
    }
}

void Workers::Run(int chunks, const std::function<void(int)>& work) {
    if (fThreads == 1 || chunks < 2) {
        for (int chunk = 0; chunk < chunks; ++chunk) {
            StopScope::Check();
            work(chunk);
        }
        return;
    }
    // An exception must not leave a thread, nor this call as long as others still work.
    std::exception_ptr failure;
    const std::thread::id caller = std::this_thread::get_id();
    const std::function<void(int)> guarded = [&](int chunk) {
        try {
            if (std::this_thread::get_id() == caller) StopScope::Check();
            work(chunk);
        } catch (...) {
            fNext = chunks;
            const std::lock_guard lock(fMutex);
            if (!failure) failure = std::current_exception();
        }
    };
    if (fCrew.empty()) Start();
    {
        std::lock_guard lock(fMutex);
        fWork = &guarded;
        fChunks = chunks;
        fNext = 0;
        fBusy = static_cast<int>(fCrew.size());
        ++fRound;
    }
    fWake.notify_all();
    Drain();
    {
        std::unique_lock lock(fMutex);
        fDone.wait(lock, [&] { return fBusy == 0; });
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace engine
