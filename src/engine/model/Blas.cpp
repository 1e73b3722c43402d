#include "engine/model/Blas.h"

#include <cblas.h>
#include <cstddef>
#include <mutex>
#include <new>

namespace engine {

namespace {

constexpr std::size_t kBuffer = std::size_t{132} << 20;  ///< bytes of the library's buffer, a little more

/// A thread's leave to call the library, for the thread's life.
class BlasLeave {
public:
    BlasLeave() {
        const std::lock_guard lock(Mutex());
        openblas_set_num_threads(1);
        // Asked for and given back: the library's own request follows. A new expression could be left out by the
        // compiler.
        ::operator delete(::operator new((Callers() + 1) * kBuffer));
        ++Callers();
    }
    ~BlasLeave() {
        const std::lock_guard lock(Mutex());
        --Callers();
    }
    BlasLeave(const BlasLeave&) = delete;
    BlasLeave& operator=(const BlasLeave&) = delete;

    void Enter() const {}

private:
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static std::size_t& Callers() {
        static std::size_t callers = 0;
        return callers;
    }
};

}  // namespace

void EnterBlas() {
    thread_local const BlasLeave leave;
    leave.Enter();
}

}  // namespace engine
