// Loaded before a program, this library lets one of its calls fail: the FAULT_AT-th call for memory (FAULT_KIND=memory)
// or to the system for files, maps and threads (FAULT_KIND=system). Without FAULT_AT nothing fails, and the file
// FAULT_PLACES gets a line for each place in the program that calls: the number of the first call from there. A place
// is a chain of callers, so that a run that fails at each of these numbers in turn has met a failure at every place.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unwind.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

constexpr int kDepth = 24;                 // callers that make a place
constexpr std::size_t kSlots = 1U << 17U;  // of the set of places

std::atomic<long> gCalls{0};
std::atomic<std::uint64_t> gPlaces[kSlots];
long gFaultAt = 0;
bool gMemory = false;
int gList = -1;
std::atomic<bool> gReady{false};
thread_local bool tInside = false;  // unwinding asks for memory itself

/// What is known before main: the environment.
[[gnu::constructor]] void Start() {
    const char* const kind = std::getenv("FAULT_KIND");
    if (!kind) return;
    gMemory = std::strcmp(kind, "memory") == 0;
    if (const char* const at = std::getenv("FAULT_AT")) gFaultAt = std::atol(at);
    if (const char* const list = std::getenv("FAULT_PLACES"))
        gList = open(list, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    gReady = true;
}

struct Chain {
    std::uint64_t fHash = 1469598103934665603U;
    int fDepth = 0;
};

_Unwind_Reason_Code AddCaller(_Unwind_Context* context, void* chain) {
    auto& at = *static_cast<Chain*>(chain);
    at.fHash = (at.fHash ^ _Unwind_GetIP(context)) * 1099511628211U;
    return ++at.fDepth < kDepth ? _URC_NO_REASON : _URC_END_OF_STACK;
}

bool NewPlace() {
    Chain chain;
    _Unwind_Backtrace(AddCaller, &chain);
    const std::uint64_t key = std::max<std::uint64_t>(chain.fHash, 1);
    for (std::size_t slot = key % kSlots;; slot = (slot + 1) % kSlots) {
        std::uint64_t found = 0;
        if (gPlaces[slot].compare_exchange_strong(found, key)) return true;
        if (found == key) return false;
    }
}

/// True when the present call has to fail.
bool Fails(bool memory) {
    if (!gReady || memory != gMemory || tInside) return false;
    const long call = ++gCalls;
    if (gList < 0) return call == gFaultAt;
    tInside = true;
    if (NewPlace()) {
        char line[24];
        const int size = std::snprintf(line, sizeof line, "%ld\n", call);
        static const auto real = reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
        if (real(gList, line, static_cast<std::size_t>(size)) != size) std::abort();
    }
    tInside = false;
    return false;
}

template <class Call>
Call Real(const char* name) {
    const bool before = tInside;
    tInside = true;
    auto* const call = reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
    tInside = before;
    return call;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    if (!Fails(true)) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

void* calloc(std::size_t count, std::size_t size) {
    if (!Fails(true)) return __libc_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

void* realloc(void* old, std::size_t size) {
    if (!Fails(true)) return __libc_realloc(old, size);
    errno = ENOMEM;
    return nullptr;
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    if (Fails(true)) return ENOMEM;
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    if (!Fails(true)) return __libc_memalign(alignment, size);
    errno = ENOMEM;
    return nullptr;
}

void* mmap(void* address, std::size_t length, int protection, int flags, int file, off_t offset) noexcept {
    using Call = void* (*)(void*, std::size_t, int, int, int, off_t);
    static const auto real = Real<Call>("mmap");
    if (!Fails(false)) return real(address, length, protection, flags, file, offset);
    errno = ENOMEM;
    return MAP_FAILED;
}

void* mremap(void* old, std::size_t oldSize, std::size_t size, int flags, ...) noexcept {
    using Call = void* (*)(void*, std::size_t, std::size_t, int, ...);
    static const auto real = Real<Call>("mremap");
    if (!Fails(false)) return real(old, oldSize, size, flags);
    errno = ENOMEM;
    return MAP_FAILED;
}

int open(const char* path, int flags, ...) {
    using Call = int (*)(const char*, int, ...);
    static const auto real = Real<Call>("open");
    va_list rest;
    va_start(rest, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    if (!Fails(false)) return real(path, flags, mode);
    errno = (flags & (O_WRONLY | O_RDWR)) != 0 ? ENOSPC : EMFILE;
    return -1;
}

ssize_t read(int file, void* buffer, std::size_t size) {
    using Call = ssize_t (*)(int, void*, std::size_t);
    static const auto real = Real<Call>("read");
    if (!Fails(false)) return real(file, buffer, size);
    errno = EIO;
    return -1;
}

ssize_t pread(int file, void* buffer, std::size_t size, off_t offset) {
    using Call = ssize_t (*)(int, void*, std::size_t, off_t);
    static const auto real = Real<Call>("pread");
    if (!Fails(false)) return real(file, buffer, size, offset);
    errno = EIO;
    return -1;
}

ssize_t write(int file, const void* buffer, std::size_t size) {
    using Call = ssize_t (*)(int, const void*, std::size_t);
    static const auto real = Real<Call>("write");
    if (file == STDERR_FILENO || !Fails(false)) return real(file, buffer, size);
    errno = ENOSPC;
    return -1;
}

ssize_t pwrite(int file, const void* buffer, std::size_t size, off_t offset) {
    using Call = ssize_t (*)(int, const void*, std::size_t, off_t);
    static const auto real = Real<Call>("pwrite");
    if (!Fails(false)) return real(file, buffer, size, offset);
    errno = ENOSPC;
    return -1;
}

ssize_t writev(int file, const iovec* parts, int count) {
    using Call = ssize_t (*)(int, const iovec*, int);
    static const auto real = Real<Call>("writev");
    if (!Fails(false)) return real(file, parts, count);
    errno = ENOSPC;
    return -1;
}

int fsync(int file) {
    static const auto real = Real<int (*)(int)>("fsync");
    if (!Fails(false)) return real(file);
    errno = EIO;
    return -1;
}

int ftruncate(int file, off_t size) noexcept {
    static const auto real = Real<int (*)(int, off_t)>("ftruncate");
    if (!Fails(false)) return real(file, size);
    errno = ENOSPC;
    return -1;
}

int posix_fallocate(int file, off_t offset, off_t size) {
    static const auto real = Real<int (*)(int, off_t, off_t)>("posix_fallocate");
    return Fails(false) ? ENOSPC : real(file, offset, size);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto real = Real<FILE* (*)(const char*, const char*)>("fopen");
    if (!Fails(false)) return real(path, mode);
    errno = EMFILE;
    return nullptr;
}

FILE* fopen64(const char* path, const char* mode) {
    return fopen(path, mode);
}

int rename(const char* from, const char* to) noexcept {
    static const auto real = Real<int (*)(const char*, const char*)>("rename");
    if (!Fails(false)) return real(from, to);
    errno = EIO;
    return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* traits, void* (*start)(void*), void* with) {
    using Call = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = Real<Call>("pthread_create");
    return Fails(false) ? EAGAIN : real(thread, traits, start, with);
}

}  // extern "C"
