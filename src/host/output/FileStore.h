#pragma once

#include <atomic>
#include <set>
#include <string>
#include <vector>

namespace host {

/// Files on their way to their names. Each is written beside its name and moved there once it is whole, so that a
/// failure leaves the file that was there before as it was, and nothing else. Links are followed, and a file that is
/// replaced keeps its permissions. What can't be replaced, a device or a pipe, is written to as it is.
class FileStore {
public:
    static FileStore& Instance();

    /// Whether a name stands for something that is written to as it is: no plain file, or one that is open
    /// already, as /dev/stdout.
    static bool IsWrittenStraight(const std::string& name);
    /// Where the file of a name is, or would be: behind links.
    static std::string Target(const std::string& name);

    /// The name of a document in the present split, which has the split's number, from 1, before the extension:
    /// "model.pmml" becomes "model_1.pmml". The same without splits, for a name that came from here, and for one that
    /// is written straight.
    std::string NameInSplit(const std::string& name);

    std::string Begin(const std::string& name);       ///< the path to write to
    void Refuse(const std::string& name, int error);  ///< the path could not be opened
    /// Moves a written file to its name: flushed to the disk first. whole: whether all of it was written.
    void Finish(const std::string& name, bool whole);
    void Remove(const std::string& name);
    /// Forgets failures, and files that were begun and never finished.
    void Clear();
    /// A sentence a failure, in order; empties the list and removes what was never finished.
    std::vector<std::string> TakeFailures();

    /// Removes what was never finished. Safe in a signal handler: for an end that allows nothing else.
    static void RemoveUnfinished() noexcept;

private:
    /// A file on its way. Never freed, since a signal may come while the list is walked; there are few.
    struct Unfinished {
        std::string fName;
        std::string fPath;  ///< the same when it is written straight
        std::atomic<bool> fThere;
        Unfinished* fpNext;

        bool IsStraight() const { return fPath == fName; }
        void Remove() const noexcept;
    };
    static Unfinished* Find(const std::string& name);

    static std::atomic<Unfinished*> gpNewest;
    std::set<std::string> fNumbered;  ///< names with a split's number
    std::vector<std::pair<std::string, int>> fvFailures;
};

}  // namespace host
