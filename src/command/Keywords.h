#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The words of the HIERFIT language in one table: what parser, help, completion, checks and suggestions know of them.
namespace command {

/// What may stand behind a parameter's "=".
enum class Shape {
    kName,          ///< one variable
    kNames,         ///< variables; * between them reads as a blank
    kNameOrNumber,  ///< one variable or one number
    kTerms,         ///< effects: a, a*b, b(a), x*x, INTERCEPT
    kTerm,          ///< one effect
    kWord,          ///< one of the parameter's words, with a number in parentheses where the word takes one
    kWords,         ///< several of them; a word may have an argument in parentheses
    kNumber,
    kNumbers,
    kCriterion,  ///< a number and one of the words
    kText,
    kTexts,       ///< texts or numbers, as written
    kTextOrName,  ///< a file name or expression, with or without quotes
    kFormat,      ///< a number format such as F12.3
    kReference,   ///< FIRST, LAST, a number or a text
    kAt,          ///< x(2.5)
    kRows         ///< rows of coefficients: a(1 -1) | INTERCEPT@1(1); ...
};

struct ParameterWord {
    std::string fName;
    Shape fShape;
    std::string fHelp;
    std::vector<std::string> fWords;  ///< what kWord, kWords, kCriterion and kReference choose from
};

struct SubcommandWord {
    std::string fName;
    std::string fHelp;
    bool fRepeatable;
    std::vector<ParameterWord> fParameters;  ///< one without a name: the subcommand is one list
};

const std::vector<SubcommandWord>& SubcommandWords();
const SubcommandWord* FindSubcommandWord(std::string_view name);  ///< case ignored; null if there is none
const ParameterWord* FindParameterWord(const SubcommandWord& subcommand, std::string_view name);

/// The table as help text.
std::string KeywordHelp();

/// Covariance structures: word, code in the parsed block. Those from kFirstRepeatedCode on are for the repeated block.
struct StructureWord {
    std::string fName;
    int fCode;
};
const std::vector<StructureWord>& StructureWords();
constexpr int kFirstRepeatedCode = 20;
constexpr int kFirstKroneckerCode = 26;
bool IsSpatialCode(int code);
bool IsKroneckerCode(int code);
int StructureCode(std::string_view name);  ///< 0 if there is no such structure
std::vector<std::string> StructureNames(bool repeated);

}  // namespace command
