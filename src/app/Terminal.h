#pragma once

#include <string>

namespace app {

/// One message on the standard error.
void Complain(const std::string& text);
void Remark(const std::string& text);

bool OutputIsTerminal();
/// Columns of the terminal that the results go to; a fixed width when they go elsewhere.
int OutputWidth();

/// A line of progress on the standard error, written over itself; nothing unless that is a terminal.
class Progress {
public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void Show(const std::string& phase, double share);

private:
    void Clear();
    bool fWanted;
    std::string fShown;
};

}  // namespace app
