#pragma once

#include "command/CommandTree.h"

#include <string>
#include <string_view>
#include <vector>

namespace command {

struct Token {
    enum class Kind { kName, kQuotedName, kText, kNumber, kSign, kEnd };
    Kind fKind = Kind::kEnd;
    std::string fText;  ///< without quotes
    double fNumber = 0.0;
    Position fAt;
    bool fSpaceBefore = false;

    bool Is(char sign) const { return fKind == Kind::kSign && fText.size() == 1 && fText[0] == sign; }
    std::string Shown() const;  ///< how a message names it: "SUBJECTS", end of the command
};

/// Which signs the text may hold, and whether "-" and "+" belong to the number behind them.
struct LexerRules {
    std::string_view fSigns;
    bool fSignedNumbers = true;
    const char* fSource = nullptr;
};

constexpr LexerRules kCommandRules{"/=()*:,;|@.", true, nullptr};

/// The tokens of a text, the last one of kind kEnd. Names start with a letter, _ or a character beyond ASCII and go on
/// with digits, . $ too; backticks hold any name, ' and " any text, each with the quote doubled inside. A # starts a
/// comment to the end of its line. Throws CommandError.
std::vector<Token> Tokenize(std::string_view text, const LexerRules& rules);

/// A name that needs no backticks.
bool IsPlainName(std::string_view name);
/// A plain name that a keyword takes among variables.
bool IsReservedName(std::string_view name);

}  // namespace command
