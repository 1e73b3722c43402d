#pragma once

#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

/// Bytes under a path that opens like any file's, without a disk.
class InMemoryFile {
public:
    explicit InMemoryFile(std::string_view bytes) : fFile(memfd_create("fuzz", MFD_CLOEXEC)) {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t wrote = write(fFile, bytes.data() + done, bytes.size() - done);
            if (wrote <= 0) break;
            done += static_cast<std::size_t>(wrote);
        }
    }
    ~InMemoryFile() { close(fFile); }
    InMemoryFile(const InMemoryFile&) = delete;
    InMemoryFile& operator=(const InMemoryFile&) = delete;
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fFile); }

private:
    int fFile;
};
