#pragma once

#include <string>
#include <utility>
#include <variant>

namespace host {

/// What is wrong with a data file or an option about it, where, and what to do.
struct DataError {
    std::string fText;    ///< the sentence: what is wrong and what to do
    std::string fFile;    ///< the file as the user named it; empty if no file is at fault
    long fLine = 0;       ///< 1-based line of the file, 0 if none
    std::string fColumn;  ///< the column's name, empty if none

    /// "data.csv, line 7, column "y": the sentence".
    std::string Message() const {
        std::string where = fFile;
        if (fLine > 0) where += (where.empty() ? "line " : ", line ") + std::to_string(fLine);
        if (!fColumn.empty()) where += (where.empty() ? "column \"" : ", column \"") + fColumn + "\"";
        return where.empty() ? fText : where + ": " + fText;
    }
};

/// A value, or why there is none.
template <class T>
class Outcome {
public:
    Outcome(T value) : fContent(std::in_place_index<0>, std::move(value)) {}
    Outcome(DataError error) : fContent(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return fContent.index() == 0; }
    T& operator*() { return std::get<0>(fContent); }
    const T& operator*() const { return std::get<0>(fContent); }
    T* operator->() { return &std::get<0>(fContent); }
    const T* operator->() const { return &std::get<0>(fContent); }
    const DataError& Error() const { return std::get<1>(fContent); }

private:
    std::variant<T, DataError> fContent;
};

}  // namespace host
