#pragma once

#include "engine/seam/StoredModel.h"
#include "host/data/SavedDataWriter.h"
#include "host/data/Table.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace app {

/// What doesn't fit, by kind: rows, and some examples.
class Misfits {
public:
    void Count(const std::string& kind, const std::string& example = {}) {
        Entry& entry = fEntries[kind];
        ++entry.fRows;
        if (!example.empty() && entry.fExamples.size() <= kExamples) entry.fExamples.insert(example);
    }
    void Add(const Misfits& other);
    bool Empty() const { return fEntries.empty(); }

    /// "in 12 rows", and what is with them.
    std::vector<std::string> Sentences() const;

private:
    static constexpr std::size_t kExamples = 3;
    struct Entry {
        std::uint64_t fRows = 0;
        std::set<std::string> fExamples;
    };
    std::map<std::string, Entry> fEntries;
};

/// Scores the rows of a table by a stored model. Both outlive it. threads: 0 for all cores.
class Predictor {
public:
    Predictor(const engine::StoredModel& model, const host::Table& table, int threads = 0);
    ~Predictor();

    /// Why there is no room for the predictions; empty when there is. To be asked before Run.
    std::string Problem() const;
    void Run();

    /// What of the data doesn't fit: what a strict run refuses, and what it doesn't.
    const Misfits& Grave() const;
    const Misfits& Light() const;
    bool PredictedAny() const;
    /// A cell for each row of the data as they were read; missing where nothing could be predicted.
    std::vector<host::AddedColumn> Columns() const;

private:
    class Walk;
    std::unique_ptr<Walk> fpWalk;
};

}  // namespace app
