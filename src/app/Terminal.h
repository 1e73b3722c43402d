#pragma once

#include "run/RunValue.h"

#include <chrono>
#include <string>

namespace app {

/// One message on the standard error.
void Complain(const std::string& text);
void Remark(const std::string& text);

bool OutputIsTerminal();
/// Columns of the terminal that the results go to; a fixed width when they go elsewhere.
int OutputWidth();

/// A line of progress on the standard error, written over itself: the phase, how far it is, and the time left where
/// that can be told. Nothing unless that is a terminal, and nothing of what takes no time.
class Progress {
public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// split of splits, from 1; splits 0: there are none.
    void Show(const run::Progress& progress, int split = 0, std::size_t splits = 0);

private:
    using Clock = std::chrono::steady_clock;
    void Write(const std::string& line);
    void Clear();

    bool fWanted;
    Clock::time_point fBegan = Clock::now();
    Clock::time_point fPhaseBegan = fBegan;
    Clock::time_point fWritten;
    std::string fPhase;
    double fShare = -1.0;
    std::string fShown;
};

}  // namespace app
