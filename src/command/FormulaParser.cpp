#include "command/FormulaNode.h"
#include "command/Lexer.h"

namespace command {

namespace {

using Kind = FormulaNode::Kind;

class FormulaParser {
public:
    explicit FormulaParser(std::string_view text) : fvTokens(Tokenize(text, {"~+-*/:^%(),|.", false, "formula"})) {}

    FormulaNode Run() {
        FormulaNode left = Sum();
        const Position at = Now().fAt;
        if (!Take('~')) Refuse("expected ~ between the target and the model");
        if (Now().fKind == Token::Kind::kEnd) Refuse("expected the model behind ~; an intercept alone is 1");
        FormulaNode root = Operator("~", at, {std::move(left), Sum()});
        if (Now().Is('|')) Refuse("a random term stands in parentheses, as in (1 | group); unexpected |");
        const bool name = Now().fKind == Token::Kind::kName;
        if (Now().fKind != Token::Kind::kEnd)
            Refuse("expected + or another operator, found " + Now().Shown() +
                   (name ? "; a name with blanks stands in backticks, as in `body mass`" : ""));
        return root;
    }

private:
    const Token& Now() const { return fvTokens[fNext]; }
    bool Take(char sign) {
        if (!Now().Is(sign)) return false;
        ++fNext;
        return true;
    }
    [[noreturn]] void Refuse(const std::string& text) const { throw CommandError{text, Now().fAt}; }

    static FormulaNode Operator(std::string sign, Position at, std::vector<FormulaNode> operands) {
        return {Kind::kOperator, std::move(sign), 0.0, at, std::move(operands)};
    }

    /// What may stand in parentheses: a sum, or two of them with a bar between.
    FormulaNode Inner() {
        FormulaNode left = Sum();
        const Position at = Now().fAt;
        if (!Take('|')) return left;
        const bool twice = Now().Is('|') && !Now().fSpaceBefore;
        if (twice) ++fNext;
        return Operator(twice ? "||" : "|", at, {std::move(left), Sum()});
    }

    FormulaNode Sum() {
        FormulaNode sum = Signed();
        while (Now().Is('+') || Now().Is('-')) {
            const Token sign = Now();
            ++fNext;
            sum = Operator(sign.fText, sign.fAt, {std::move(sum), Product()});
        }
        return sum;
    }

    FormulaNode Signed() {
        const Token sign = Now();
        if (!Take('+') && !Take('-')) return Product();
        return Operator(sign.fText, sign.fAt, {Product()});
    }

    FormulaNode Product() {
        FormulaNode product = Within();
        while (Now().Is('*') || Now().Is('/')) {
            const Token sign = Now();
            ++fNext;
            product = Operator(sign.fText, sign.fAt, {std::move(product), Within()});
        }
        return product;
    }

    FormulaNode Within() {
        FormulaNode left = Interaction();
        while (Now().Is('%')) {
            const Position at = Now().fAt;
            ++fNext;
            if (Now().fText != "in") Refuse("expected %in%");
            ++fNext;
            if (!Take('%')) Refuse("expected %in%");
            left = Operator("%in%", at, {std::move(left), Interaction()});
        }
        return left;
    }

    FormulaNode Interaction() {
        FormulaNode left = Power();
        while (Now().Is(':')) {
            const Position at = Now().fAt;
            ++fNext;
            left = Operator(":", at, {std::move(left), Power()});
        }
        return left;
    }

    FormulaNode Power() {
        FormulaNode base = Primary();
        if (!Now().Is('^')) return base;
        const Position at = Now().fAt;
        ++fNext;
        if (Now().fKind != Token::Kind::kNumber) Refuse("expected a number behind ^");
        FormulaNode exponent = Primary();
        return Operator("^", at, {std::move(base), std::move(exponent)});
    }

    FormulaNode Primary() {
        const Token token = Now();
        if (token.fKind == Token::Kind::kNumber) {
            ++fNext;
            return {Kind::kNumber, token.fText, token.fNumber, token.fAt, {}};
        }
        if (token.fKind == Token::Kind::kName || token.fKind == Token::Kind::kQuotedName ||
            token.fKind == Token::Kind::kText) {
            ++fNext;
            if (token.fKind == Token::Kind::kName && Now().Is('(')) return Call(token);
            return {Kind::kName, token.fText, 0.0, token.fAt, {}};
        }
        if (Take('.')) return {Kind::kDot, ".", 0.0, token.fAt, {}};
        if (!Now().Is('(')) Refuse("expected a variable, found " + Now().Shown());
        FormulaNode inner{Kind::kParentheses, "(", 0.0, token.fAt, {}};
        inner.fvParts.push_back(Enclosed());
        return inner;
    }

    FormulaNode Enclosed() {
        const Position open = Now().fAt;
        if (++fDepth > kDeepest) Refuse("parentheses are nested too deeply");
        ++fNext;
        FormulaNode inner = Inner();
        Close(open);
        return inner;
    }

    void Close(Position open) {
        if (Now().fKind == Token::Kind::kEnd) throw CommandError{"( is not closed", open};
        if (!Take(')')) Refuse("expected ), found " + Now().Shown());
        --fDepth;
    }

    FormulaNode Call(const Token& name) {
        FormulaNode call{Kind::kCall, name.fText, 0.0, name.fAt, {}};
        const Position open = Now().fAt;
        if (++fDepth > kDeepest) Refuse("parentheses are nested too deeply");
        ++fNext;
        do {
            call.fvParts.push_back(Inner());
        } while (Take(','));
        Close(open);
        return call;
    }

    static constexpr int kDeepest = 100;
    std::vector<Token> fvTokens;
    std::size_t fNext = 0;
    int fDepth = 0;
};

}  // namespace

FormulaNode ParseFormulaText(std::string_view text) {
    return FormulaParser(text).Run();
}

}  // namespace command
