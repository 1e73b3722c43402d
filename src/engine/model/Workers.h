#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace engine {

/// A few threads that share a list of numbered chunks. Which thread takes a chunk is left to chance, so that callers
/// keep a result per chunk and add the results up in chunk order: then the number of threads changes no bit.
class Workers {
public:
    /// threads: 0 for as many as the machine has. Threads start with the first call of Run that can use them.
    explicit Workers(int threads);
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    int Threads() const { return fThreads; }

    /// Calls work(0) to work(chunks - 1), each once, and returns when all are done. The calling thread takes part.
    void Run(int chunks, const std::function<void(int)>& work);

private:
    void Start();
    void Serve(const std::stop_token& stop);
    void Drain();

    int fThreads;
    std::vector<std::jthread> fCrew;
    std::mutex fMutex;
    std::condition_variable_any fWake;
    std::condition_variable fDone;
    const std::function<void(int)>* fWork = nullptr;
    std::atomic<int> fNext = 0;
    int fChunks = 0;
    int fBusy = 0;
    long fRound = 0;
};

}  // namespace engine
