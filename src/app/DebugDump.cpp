#include "app/DebugDump.h"

#include "app/ExitCode.h"
#include "command/Words.h"
#include "host/data/FrontEnd.h"
#include "procedure/DebugSwitches.h"

#include <array>
#include <cstdio>
#include <sstream>
#include <vector>

namespace app {

namespace {

struct Switch {
    const char* fWord;
    bool* fpOn;
};
const std::array<Switch, 5> kSwitches{{{"specs", &gbDisplaySpecs},
                                       {"varlist", &gbDisplayVarList},
                                       {"component", &gbDisplayComponent},
                                       {"stats", &gbDisplayOutputStats},
                                       {"records", &gbDumpSortedRecords}}};

void TurnOn(const std::string& word) {
    std::vector<std::string> known;
    for (const Switch& entry : kSwitches) {
        if (word == entry.fWord) {
            *entry.fpOn = true;
            return;
        }
        known.emplace_back(entry.fWord);
    }
    throw Failure{kWrongUse, "--debug: there is no text " + word + command::SuggestionText(word, known, true)};
}

}  // namespace

DebugDump::DebugDump(const std::string& words) {
    std::istringstream list(words);
    for (std::string word; std::getline(list, word, ',');)
        TurnOn(word);
    if (words.empty()) return;
    host::SetFrontEnd([](bool wholeLine, const std::string& text) {
        std::fwrite(text.data(), 1, text.size(), stderr);
        if (wholeLine) std::fputc('\n', stderr);
    });
}

DebugDump::~DebugDump() {
    for (const Switch& entry : kSwitches)
        *entry.fpOn = false;
    host::SetFrontEnd({});
}

}  // namespace app
