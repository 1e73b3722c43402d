#include "app/Terminal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace app {

void Complain(const std::string& text) {
    std::fprintf(stderr, "hierfit: %s\n", text.c_str());
}

void Remark(const std::string& text) {
    std::fprintf(stderr, "hierfit: note: %s\n", text.c_str());
}

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) != 0;
}

int OutputWidth() {
    constexpr int kWithoutTerminal = 120;
    winsize size{};
    if (!OutputIsTerminal() || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kWithoutTerminal;
    return std::max<int>(size.ws_col, 40);
}

Progress::Progress(bool wanted) : fWanted(wanted && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    Clear();
}

namespace {

/// A time span as people say it: "40 s", "3 min", "2 h 10 min".
std::string SpanText(double seconds) {
    const auto minutes = static_cast<long>(std::lround(seconds / 60.0));
    if (seconds < 60.0) return std::to_string(std::lround(seconds)) + " s";
    if (minutes < 60) return std::to_string(minutes) + " min";
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

std::string ProgressText(const run::Progress& progress, int split, std::size_t splits, double share) {
    std::string line = progress.fPhase;
    if (splits > 0) line += " split " + std::to_string(split) + " of " + std::to_string(splits);
    if (progress.fIteration > 0) line += ", iteration " + std::to_string(progress.fIteration);
    if (progress.fChange > 0.0) {
        char change[32];
        std::snprintf(change, sizeof change, ", change %.2g", progress.fChange);
        line += change;
    }
    if (share >= 0.0) line += ", " + std::to_string(static_cast<int>(100.0 * std::min(share, 1.0))) + " %";
    return line;
}

}  // namespace

void Progress::Show(const run::Progress& progress, int split, std::size_t splits) {
    if (!fWanted) return;
    const Clock::time_point now = Clock::now();
    double share = progress.fShare;
    if (share < 0.0 && splits > 0) share = (split - 1.0) / static_cast<double>(splits);
    // The phases of a split belong to one walk over all of them.
    if (share < fShare || (splits == 0 && fPhase != progress.fPhase)) fPhaseBegan = now;
    fPhase = progress.fPhase;
    fShare = share;
    constexpr std::chrono::milliseconds kPatience{500}, kPace{100};
    if (now - fBegan < kPatience || now - fWritten < kPace) return;
    fWritten = now;
    std::string line = ProgressText(progress, split, splits, share);
    const double spent = std::chrono::duration<double>(now - fPhaseBegan).count();
    const double left = spent * (1.0 - share) / share;
    if (share > 0.05 && spent > 1.0 && left >= 1.0) line += ", " + SpanText(left) + " left";
    Write(line);
}

void Progress::Write(const std::string& line) {
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    fShown = line.substr(0, known ? size.ws_col - 1 : 79);
    std::fprintf(stderr, "\r\033[K%s", fShown.c_str());
    std::fflush(stderr);
}

void Progress::Clear() {
    if (fShown.empty()) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    fShown.clear();
}

}  // namespace app
