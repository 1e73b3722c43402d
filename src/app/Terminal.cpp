#include "app/Terminal.h"

#include <algorithm>
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

void Progress::Show(const std::string& phase, double share) {
    if (!fWanted) return;
    std::string line = phase;
    if (share >= 0.0) line += " " + std::to_string(static_cast<int>(100.0 * std::min(share, 1.0))) + " %";
    if (line == fShown) return;
    Clear();
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    fShown = std::move(line);
}

void Progress::Clear() {
    if (!fShown.empty()) std::fputs("\r\033[K", stderr);
    fShown.clear();
}

}  // namespace app
