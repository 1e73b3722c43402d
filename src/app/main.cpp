#include "app/ExitCode.h"
#include "app/LastWords.h"
#include "app/Session.h"
#include "app/StopSignal.h"
#include "app/Terminal.h"
#include "host/output/FileStore.h"

#include <exception>
#include <new>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

/// A fit takes and gives back matrices of some megabytes many times over: the allocator is to keep such blocks, since
/// each that goes back to the system is cleared page by page when it is taken again.
void KeepFreedMemory() {
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
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
        app::Complain(app::kNoMemory);
        return app::kNotFitted;
    } catch (const std::exception& error) {
        app::Complain(std::string("the run ended unexpectedly: ") + error.what());
        return app::kNotFitted;
    }
}

}  // namespace

int main(int argc, char** argv) {
    KeepFreedMemory();
    const int code = Run(argc, argv);
    app::LeaveAtOnceIfLimited(code);
    return code;
}
