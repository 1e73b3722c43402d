#include "command/Lexer.h"

#include "command/Words.h"

namespace command {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}
bool IsNameChar(char c) {
    return IsNameStart(c) || IsDigit(c) || c == '.' || c == '$';
}
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

class Scanner {
public:
    Scanner(std::string_view text, const LexerRules& rules) : fText(text), fRules(rules) {
        if (fText.starts_with("\xEF\xBB\xBF")) fNext = 3;
        fAt = {1, 1, rules.fSource};
    }

    std::vector<Token> Run() {
        std::vector<Token> tokens;
        do {
            const std::size_t before = fNext;
            SkipBlanks();
            Token token = Next();
            token.fSpaceBefore = fTokenStart > before || before == 0;
            tokens.push_back(std::move(token));
        } while (tokens.back().fKind != Token::Kind::kEnd);
        return tokens;
    }

private:
    bool AtEnd() const { return fNext >= fText.size(); }
    char Peek(std::size_t ahead = 0) const { return fNext + ahead < fText.size() ? fText[fNext + ahead] : '\0'; }

    void Advance() {
        const char c = fText[fNext++];
        if (c == '\n') {
            ++fAt.fLine;
            fAt.fColumn = 1;
        } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            ++fAt.fColumn;
        }
    }

    void SkipBlanks() {
        while (!AtEnd()) {
            if (IsBlank(Peek())) {
                Advance();
            } else if (Peek() == '#') {
                while (!AtEnd() && Peek() != '\n')
                    Advance();
            } else {
                return;
            }
        }
    }

    Token Next() {
        Token token;
        token.fAt = fAt;
        fTokenStart = fNext;
        if (AtEnd()) return token;
        const char c = Peek();
        if (IsNameStart(c)) {
            token.fKind = Token::Kind::kName;
            while (!AtEnd() && IsNameChar(Peek()))
                Take(token);
            DropFinalPeriod(token);
        } else if (c == '`' || c == '\'' || c == '"') {
            token.fKind = c == '`' ? Token::Kind::kQuotedName : Token::Kind::kText;
            ReadQuoted(token, c);
        } else if (StartsNumber()) {
            ReadNumberToken(token);
        } else if (fRules.fSigns.find(c) != std::string_view::npos && c != '\0') {
            token.fKind = Token::Kind::kSign;
            Take(token);
        } else {
            std::string shown;
            do {
                shown += Peek();
                Advance();
            } while (!AtEnd() && (static_cast<unsigned char>(Peek()) & 0xC0) == 0x80);
            if (static_cast<unsigned char>(c) < 0x20) shown = "a control character";
            throw CommandError{"unexpected " + shown, token.fAt};
        }
        return token;
    }

    void Take(Token& token) {
        token.fText += Peek();
        Advance();
    }

    /// The period that ends a command may touch its last name.
    void DropFinalPeriod(Token& token) {
        if (token.fText.size() < 2 || token.fText.back() != '.' || fRules.fSigns.find('.') == std::string_view::npos)
            return;
        for (std::size_t i = fNext; i < fText.size(); ++i)
            if (!IsBlank(fText[i])) return;
        token.fText.pop_back();
        --fNext;
        --fAt.fColumn;
    }

    bool StartsNumber() const {
        std::size_t ahead = 0;
        if (fRules.fSignedNumbers && (Peek() == '-' || Peek() == '+')) ahead = 1;
        return IsDigit(Peek(ahead)) || (Peek(ahead) == '.' && IsDigit(Peek(ahead + 1)));
    }

    void ReadNumberToken(Token& token) {
        token.fKind = Token::Kind::kNumber;
        if (!IsDigit(Peek()) && Peek() != '.') Take(token);
        while (IsDigit(Peek()))
            Take(token);
        if (Peek() == '.' && IsDigit(Peek(1))) {
            Take(token);
            while (IsDigit(Peek()))
                Take(token);
        }
        const bool exponentSign = Peek(1) == '-' || Peek(1) == '+';
        if ((Peek() == 'e' || Peek() == 'E') && IsDigit(Peek(exponentSign ? 2 : 1))) {
            Take(token);
            if (exponentSign) Take(token);
            while (IsDigit(Peek()))
                Take(token);
        }
        if (!AtEnd() && IsNameStart(Peek())) {
            while (!AtEnd() && IsNameChar(Peek()))
                Take(token);
            throw CommandError{token.fText + " is neither a number nor a name; write a name like this in backticks",
                               token.fAt};
        }
        if (!ReadNumber(token.fText, token.fNumber))
            throw CommandError{"the number " + token.fText + " is beyond the range of numbers", token.fAt};
    }

    void ReadQuoted(Token& token, char quote) {
        Advance();
        while (true) {
            if (AtEnd()) throw CommandError{std::string(1, quote) + " is not closed", token.fAt};
            if (Peek() == quote) {
                if (Peek(1) != quote) break;
                Advance();
            }
            Take(token);
        }
        Advance();
        if (quote == '`' && token.fText.empty()) throw CommandError{"a name in backticks is empty", token.fAt};
        if (token.fText.find('\0') != std::string::npos) throw CommandError{"a text holds a zero byte", token.fAt};
    }

    std::string_view fText;
    LexerRules fRules;
    std::size_t fNext = 0;
    std::size_t fTokenStart = 0;
    Position fAt;
};

}  // namespace

std::string Token::Shown() const {
    switch (fKind) {
        case Kind::kEnd:
            return "the end";
        case Kind::kText:
            return "'" + fText + "'";
        default:
            return fText;
    }
}

std::vector<Token> Tokenize(std::string_view text, const LexerRules& rules) {
    return Scanner(text, rules).Run();
}

bool IsPlainName(std::string_view name) {
    if (name.empty() || !IsNameStart(name.front()) || name.back() == '.') return false;
    for (const char c : name)
        if (!IsNameChar(c)) return false;
    return true;
}

bool IsReservedName(std::string_view name) {
    return EqualWords(name, "INTERCEPT") || EqualWords(name, "ALL");
}

}  // namespace command
