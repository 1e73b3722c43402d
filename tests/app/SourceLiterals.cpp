#include "app/SourceLiterals.h"

#include "app/CaseRunner.h"

namespace apptest {

namespace fs = std::filesystem;

namespace {

class LiteralReader {
public:
    LiteralReader(std::string file, const std::string& source, std::vector<Literal>& literals)
        : fFile(std::move(file)), fSource(source), fLiterals(literals) {}

    void Run() {
        while (fAt < fSource.size()) {
            const char c = fSource[fAt];
            if (Begins("//"))
                SkipTo("\n");
            else if (Begins("R\"") || c == '"')
                Add(c == 'R' ? Raw() : Quoted());
            else if (c == '\'' && (fAt == 0 || std::isalnum(static_cast<unsigned char>(fSource[fAt - 1])) == 0))
                Quoted();  // a character; between digits it only separates them
            else
                Code(c);
        }
    }

private:
    bool Begins(const char* text) const {
        return fSource.compare(fAt, std::char_traits<char>::length(text), text) == 0;
    }
    void SkipTo(const std::string& text) { fAt = std::min(fSource.find(text, fAt), fSource.size()); }

    void Code(char c) {
        ++fAt;
        if (c == ';' || c == '{' || c == '}')
            fStatement.clear();
        else
            fStatement += c;
        if (c != ' ' && c != '\n') fJoins = false;
    }

    std::string Quoted() {
        const char quote = fSource[fAt++];
        std::string text;
        for (; fSource[fAt] != quote; ++fAt) {
            const bool escaped = fSource[fAt] == '\\';
            if (escaped) ++fAt;
            text += escaped && fSource[fAt] == 'n' ? '\n' : fSource[fAt];
        }
        ++fAt;
        return text;
    }

    std::string Raw() {
        const std::size_t open = fSource.find('(', fAt);
        const std::string close = std::string(1, ')').append(fSource, fAt + 2, open - fAt - 2).append(1, '"');
        fAt = fSource.find(close, open);
        const std::string text = fSource.substr(open + 1, fAt - open - 1);
        fAt += close.size();
        return text;
    }

    void Add(const std::string& text) {
        if (fJoins)
            fLiterals.back().fText += text;
        else
            fLiterals.push_back({text, fFile, fStatement});
        fJoins = true;
    }

    std::string fFile;
    const std::string& fSource;
    std::vector<Literal>& fLiterals;
    std::size_t fAt = 0;
    std::string fStatement;
    bool fJoins = false;  ///< only blanks stand since the last literal
};

}  // namespace

const std::vector<Literal>& SourceLiterals() {
    static const std::vector<Literal> literals = [] {
        std::vector<Literal> read;
        const fs::path root = HIERFIT_SOURCE_DIR "/src";
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            const fs::path extension = entry.path().extension();
            if (extension != ".cpp" && extension != ".h") continue;
            const std::string source = ReadFile(entry.path());
            LiteralReader(fs::relative(entry.path(), root), source, read).Run();
        }
        return read;
    }();
    return literals;
}

}  // namespace apptest
