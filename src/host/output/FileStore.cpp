#include "host/output/FileStore.h"

#include "contracts/HostFiles.h"
#include "contracts/HostOutput.h"
#include "host/output/Pattern.h"
#include "host/strings/Catalogue.h"
#include "run/RunValue.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

/// Waits until the disk has the file; false with errno set when it can't take it.
bool Flushed(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool flushed = fsync(file) == 0 || errno == EINVAL;  // some file systems have nothing to flush
    const int error = errno;
    close(file);
    errno = error;
    return flushed;
}

/// Moves a file over another, whose permissions it takes.
bool Replace(const std::string& old, const std::string& path) {
    struct stat facts {};
    if (stat(old.c_str(), &facts) == 0 && chmod(path.c_str(), facts.st_mode & 07777U) != 0) return false;
    return rename(path.c_str(), old.c_str()) == 0;
}

}  // namespace

bool FileStore::IsWrittenStraight(const std::string& name) {
    if (name.starts_with("/dev/std") || name.starts_with("/dev/fd/") || name.starts_with("/proc/")) return true;
    struct stat facts {};
    return stat(name.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode);
}

std::string FileStore::Target(const std::string& name) {
    constexpr int kMostLinks = 40;  // as many as the system follows
    std::filesystem::path path(name);
    std::error_code error;
    for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, error); ++i) {
        const std::filesystem::path next = std::filesystem::read_symlink(path, error);
        if (error) break;
        path = path.parent_path() / next;
    }
    return path.string();
}

void FileStore::Unfinished::Remove() const noexcept {
    if (!IsStraight()) unlink(fPath.c_str());
}

FileStore& FileStore::Instance() {
    static FileStore store;
    return store;
}

std::atomic<FileStore::Unfinished*> FileStore::gpNewest{nullptr};

FileStore::Unfinished* FileStore::Find(const std::string& name) {
    for (Unfinished* file = gpNewest; file; file = file->fpNext)
        if (file->fThere && file->fName == name) return file;
    return nullptr;
}

std::string FileStore::NameInSplit(const std::string& name) {
    const run::RunValue* run = run::Current();
    if (!run || run->fSplit.empty() || fNumbered.contains(name) || IsWrittenStraight(name)) return name;
    const std::filesystem::path path(name);
    const auto file = fmt::format("{}_{}{}", path.stem().string(), run->fSplitOrdinal + 1, path.extension().string());
    return *fNumbered.insert((path.parent_path() / file).string()).first;
}

std::string FileStore::Begin(const std::string& name) {
    std::string path = IsWrittenStraight(name) ? name : fmt::format("{}.part{}", Target(name), getpid());
    if (!Find(name)) gpNewest = new Unfinished{name, path, true, gpNewest};
    return path;
}

void FileStore::Refuse(const std::string& name, int error) {
    if (Unfinished* const file = Find(name)) file->fThere = false;
    fvFailures.emplace_back(name, error);
}

void FileStore::Finish(const std::string& name, bool whole) {
    Unfinished* const file = Find(name);
    if (!file) return;
    errno = ENOSPC;  // what a stream that went bad has most often met
    const bool done = whole && (file->IsStraight() || (Flushed(file->fPath) && Replace(Target(name), file->fPath)));
    const int error = errno;
    if (!done) file->Remove();
    file->fThere = false;
    if (!done) fvFailures.emplace_back(name, error);
}

void FileStore::Remove(const std::string& name) {
    if (IsWrittenStraight(name)) return;
    std::error_code error;
    std::filesystem::remove(Target(name), error);
    if (error) fvFailures.emplace_back(name, error.value());
}

void FileStore::RemoveUnfinished() noexcept {
    for (Unfinished* file = gpNewest; file; file = file->fpNext)
        if (file->fThere.exchange(false)) file->Remove();
}

void FileStore::Clear() {
    RemoveUnfinished();
    fNumbered.clear();
    fvFailures.clear();
}

std::vector<std::string> FileStore::TakeFailures() {
    RemoveUnfinished();
    std::vector<std::string> sentences;
    for (const auto& [name, error] : fvFailures) {
        sentences.push_back(FillPattern(Catalogue::Current().Text("File ^1 could not be written: ^2 ..."),
                                        std::vector<std::string>{name, std::strerror(error)}));
    }
    fvFailures.clear();
    return sentences;
}

}  // namespace host

void ExtNameStr::SetGeneric(const std::string& name) {
    fName = host::FileStore::Instance().NameInSplit(name);
}

/// A walk that only scores has no files of its own.
void ExtNameStr::Open(std::ofstream& stream, int) {
    if (run::Current() && run::Current()->fScoring) return;
    if (run::Current()) run::Current()->fStreamFailed = false;
    stream.open(host::FileStore::Instance().Begin(fName), std::ios::out | std::ios::trunc | std::ios::binary);
    if (!stream.is_open()) host::FileStore::Instance().Refuse(fName, errno);
}

AccessValue ExtNameStr::Access(AccessType) const {
    std::error_code error;
    return std::filesystem::exists(fName, error) ? kAccessOther : kAccessAbsent;
}

void ExtNameStr::remove() {
    if (run::Current() && run::Current()->fScoring) return;
    host::FileStore::Instance().Remove(fName);
}

void TestAndStoreToPes(const char* fileName, int, int) {
    run::RunValue* run = run::Current();
    host::FileStore& store = host::FileStore::Instance();
    store.Finish(store.NameInSplit(fileName), !run || !run->fStreamFailed);
    if (run) run->fStreamFailed = false;
}

void BEPesRepos::BEPesClear() {
    host::FileStore::Instance().Clear();
}

void BEPesRepos::BEPesCheckError() {
    for (const auto& sentence : host::FileStore::Instance().TakeFailures()) {
        BpError(BpString(sentence, false), kShowAlways, kLevelError);
        if (run::Current()) run::Current()->fFileFailed = true;
    }
}
