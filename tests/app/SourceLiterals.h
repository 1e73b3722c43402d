#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace apptest {

/// A text in quotes of the sources; pieces that follow one another are one.
struct Literal {
    std::string fText;       ///< as the program has it, escapes undone
    std::string fFile;       ///< from src/ on
    std::string fStatement;  ///< the code before it, back to the last ; { or }
};

/// Those of all .cpp and .h files of src/.
const std::vector<Literal>& SourceLiterals();

}  // namespace apptest
