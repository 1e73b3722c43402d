#include "host/data/Filter.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace host {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kMostLevels = 200;
constexpr std::size_t kLongestCondition = 10000;

/// What a part of the condition is, for the rows of a block: numbers (truth is 0 or 1, unknown is NaN), or texts.
struct Cells {
    std::vector<double> fNumbers;
    std::vector<std::string> fTexts;
    std::vector<bool> fKnown;  ///< of texts: not missing
};

struct Rows {
    const TableContent& fContent;
    std::size_t fBlock;
    std::size_t fCount;
};

enum class Kind { kNumber, kText, kTruth };

}  // namespace

struct Filter::Node {
    explicit Node(Kind kind) : fKind(kind) {}
    virtual ~Node() = default;
    virtual void Evaluate(const Rows& rows, Cells& cells) const = 0;
    Kind fKind;
};

namespace {

using Node = Filter::Node;
using NodePtr = std::unique_ptr<const Node>;

struct Constant : Node {
    explicit Constant(double value) : Node(Kind::kNumber), fNumber(value) {}
    explicit Constant(std::string text) : Node(Kind::kText), fText(std::move(text)) {
        while (!fText.empty() && fText.back() == ' ')
            fText.pop_back();
    }
    void Evaluate(const Rows& rows, Cells& cells) const override {
        if (fKind == Kind::kNumber) return cells.fNumbers.assign(rows.fCount, fNumber);
        cells.fTexts.assign(rows.fCount, fText);
        cells.fKnown.assign(rows.fCount, true);
    }
    double fNumber = kNaN;
    std::string fText;
};

struct ColumnCells : Node {
    ColumnCells(int index, bool text) : Node(text ? Kind::kText : Kind::kNumber), fIndex(index) {}
    void Evaluate(const Rows& rows, Cells& cells) const override {
        const TableContent::Column& column = rows.fContent.fColumns[fIndex];
        const Variable& variable = column.fVariable;
        if (fKind == Kind::kNumber) {
            cells.fNumbers.resize(rows.fCount);
            ReadBlockNumbers(rows.fContent.fStore, column.fBlocks[rows.fBlock], rows.fCount, cells.fNumbers.data());
            for (const double missing : variable.fMissingNumbers)
                std::replace(cells.fNumbers.begin(), cells.fNumbers.end(), missing, kNaN);
            return;
        }
        std::vector<std::uint32_t> codes(rows.fCount);
        ReadBlockCodes(rows.fContent.fStore, column.fBlocks[rows.fBlock], rows.fCount, codes.data());
        cells.fTexts.resize(rows.fCount);
        cells.fKnown.resize(rows.fCount);
        for (std::size_t i = 0; i < rows.fCount; ++i) {
            cells.fTexts[i] = column.fPool->Text(codes[i]);
            cells.fKnown[i] = codes[i] != 0 && !std::binary_search(variable.fMissingTexts.begin(),
                                                                   variable.fMissingTexts.end(), cells.fTexts[i]);
        }
    }
    int fIndex;
};

struct Missing : Node {
    explicit Missing(NodePtr inner) : Node(Kind::kTruth), fInner(std::move(inner)) {}
    void Evaluate(const Rows& rows, Cells& cells) const override {
        Cells inner;
        fInner->Evaluate(rows, inner);
        cells.fNumbers.resize(rows.fCount);
        for (std::size_t i = 0; i < rows.fCount; ++i)
            cells.fNumbers[i] = fInner->fKind == Kind::kText ? !inner.fKnown[i] : std::isnan(inner.fNumbers[i]);
    }
    NodePtr fInner;
};

enum class Order { kEqual, kUnequal, kLess, kLessEqual, kGreater, kGreaterEqual };

template <class Value>
bool Holds(Order order, const Value& a, const Value& b) {
    switch (order) {
        case Order::kEqual:
            return a == b;
        case Order::kUnequal:
            return a != b;
        case Order::kLess:
            return a < b;
        case Order::kLessEqual:
            return a <= b;
        case Order::kGreater:
            return a > b;
        default:
            return a >= b;
    }
}

struct Comparison : Node {
    Comparison(Order order, NodePtr left, NodePtr right)
        : Node(Kind::kTruth), fOrder(order), fLeft(std::move(left)), fRight(std::move(right)) {}
    void Evaluate(const Rows& rows, Cells& cells) const override {
        Cells left, right;
        fLeft->Evaluate(rows, left);
        fRight->Evaluate(rows, right);
        cells.fNumbers.resize(rows.fCount);
        const bool text = fLeft->fKind == Kind::kText;
        for (std::size_t i = 0; i < rows.fCount; ++i) {
            const bool known = text ? left.fKnown[i] && right.fKnown[i]
                                    : !std::isnan(left.fNumbers[i]) && !std::isnan(right.fNumbers[i]);
            cells.fNumbers[i] = !known ? kNaN
                                : text ? Holds(fOrder, left.fTexts[i], right.fTexts[i])
                                       : Holds(fOrder, left.fNumbers[i], right.fNumbers[i]);
        }
    }
    Order fOrder;
    NodePtr fLeft, fRight;
};

// Arithmetic and logic: one number from two. Three-valued logic takes NaN as unknown.
struct Combination : Node {
    using Rule = double (*)(double, double);
    Combination(Kind kind, Rule rule, NodePtr left, NodePtr right)
        : Node(kind), fRule(rule), fLeft(std::move(left)), fRight(std::move(right)) {}
    void Evaluate(const Rows& rows, Cells& cells) const override {
        Cells right;
        fLeft->Evaluate(rows, cells);
        fRight->Evaluate(rows, right);
        for (std::size_t i = 0; i < rows.fCount; ++i)
            cells.fNumbers[i] = fRule(cells.fNumbers[i], right.fNumbers[i]);
    }
    Rule fRule;
    NodePtr fLeft, fRight;
};

double Both(double a, double b) {
    return a == 0.0 || b == 0.0 ? 0.0 : a + b == 2.0 ? 1.0 : kNaN;
}
double Either(double a, double b) {
    return a == 1.0 || b == 1.0 ? 1.0 : a + b == 0.0 ? 0.0 : kNaN;
}
double Difference(double a, double b) {
    return a - b;
}

class ConditionParser {
public:
    ConditionParser(const std::string& text, const TableContent& content) : fText(text), fContent(content) {}

    Outcome<std::shared_ptr<const Filter>> Parse() {
        if (fText.size() > kLongestCondition) return DataError{"the filter is longer than 10000 characters", {}, 0, {}};
        NodePtr root = Condition();
        if (root && fAt < fText.size()) Fail("something follows the condition");
        if (root && !fError && root->fKind != Kind::kTruth) Fail("this is a value, not a condition; compare it");
        if (fError) return *fError;
        return std::shared_ptr<const Filter>(std::make_shared<Filter>(std::move(root)));
    }

private:
    /// One more level of nesting, for as long as it lives.
    class Level {
    public:
        explicit Level(int& depth) : fDepth(depth) { ++fDepth; }
        ~Level() { --fDepth; }
        Level(const Level&) = delete;
        Level& operator=(const Level&) = delete;

    private:
        int& fDepth;
    };

    NodePtr Fail(const std::string& text) {
        if (!fError) {
            const std::string place = fAt < fText.size() ? "at \"" + fText.substr(fAt, 20) + "\"" : "at its end";
            fError = DataError{"the filter \"" + fText + "\" can't be read " + place + ": " + text, {}, 0, {}};
        }
        return nullptr;
    }

    void SkipBlanks() {
        while (fAt < fText.size() && std::isspace(static_cast<unsigned char>(fText[fAt])))
            ++fAt;
    }

    bool Take(std::string_view symbol) {
        SkipBlanks();
        if (fText.compare(fAt, symbol.size(), symbol) != 0) return false;
        fAt += symbol.size();
        SkipBlanks();
        return true;
    }

    static bool InName(char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '$' || c == '@' ||
               c == '#' || (static_cast<unsigned char>(c) & 0x80) != 0;
    }

    std::string PeekWord() {
        SkipBlanks();
        std::size_t end = fAt;
        while (end < fText.size() && InName(fText[end]))
            ++end;
        return fText.substr(fAt, end - fAt);
    }

    bool TakeWord(std::string_view word) {
        std::string next = PeekWord();
        std::transform(next.begin(), next.end(), next.begin(), [](unsigned char c) { return std::tolower(c); });
        if (next != word) return false;
        fAt += word.size();
        SkipBlanks();
        return true;
    }

    NodePtr Logic(NodePtr left, NodePtr right, Combination::Rule rule) {
        if (!left || !right) return nullptr;
        if (left->fKind != Kind::kTruth || right->fKind != Kind::kTruth)
            return Fail("\"and\", \"or\" and \"not\" join conditions, not values");
        return std::make_unique<Combination>(Kind::kTruth, rule, std::move(left), std::move(right));
    }

    NodePtr Condition() {
        NodePtr left = All();
        while (left && (TakeWord("or") || Take("||") || Take("|")))
            left = Logic(std::move(left), All(), Either);
        return left;
    }

    NodePtr All() {
        NodePtr left = Single();
        while (left && (TakeWord("and") || Take("&&") || Take("&")))
            left = Logic(std::move(left), Single(), Both);
        return left;
    }

    NodePtr Not(NodePtr inner) { return Logic(std::make_unique<TruthConstant>(), std::move(inner), Difference); }

    NodePtr Single() {
        const Level level(fDepth);
        if (fDepth > kMostLevels) return Fail("it is nested too deeply");
        if (TakeWord("not") || (PeekIsNot() && Take("!"))) return Not(Single());
        return Compared();
    }

    bool PeekIsNot() {
        SkipBlanks();
        return fAt + 1 < fText.size() && fText[fAt] == '!' && fText[fAt + 1] != '=';
    }

    NodePtr Compared() {
        NodePtr left = Sum();
        if (!left) return nullptr;
        static constexpr std::pair<const char*, Order> kOrders[] = {
            {"==", Order::kEqual},        {"!=", Order::kUnequal}, {"<>", Order::kUnequal}, {"<=", Order::kLessEqual},
            {">=", Order::kGreaterEqual}, {"=", Order::kEqual},    {"<", Order::kLess},     {">", Order::kGreater}};
        for (const auto& [symbol, order] : kOrders)
            if (Take(symbol)) return Compare(order, std::move(left), Sum());
        const std::size_t before = fAt;
        const bool negated = TakeWord("not");
        if (TakeWord("in")) return In(std::move(left), negated);
        fAt = before;
        return left;
    }

    NodePtr Compare(Order order, NodePtr left, NodePtr right) {
        if (!left || !right) return nullptr;
        if (left->fKind == Kind::kTruth || right->fKind == Kind::kTruth)
            return Fail("conditions can't be compared; join them with \"and\" or \"or\"");
        if (left->fKind != right->fKind) return Fail("a text is compared with a number; put texts in quotes");
        return std::make_unique<Comparison>(order, std::move(left), std::move(right));
    }

    // x in (a, b): x = a or x = b. The variable is read anew for each value.
    NodePtr In(NodePtr left, bool negated) {
        const auto* column = dynamic_cast<const ColumnCells*>(left.get());
        if (column == nullptr) return Fail("a variable's name belongs before \"in\"");
        if (!Take("(")) return Fail("\"in\" needs a list in parentheses");
        NodePtr any;
        do {
            auto again = std::make_unique<ColumnCells>(column->fIndex, column->fKind == Kind::kText);
            NodePtr equal = Compare(Order::kEqual, std::move(again), Sum());
            if (!equal) return nullptr;
            any = any ? Logic(std::move(any), std::move(equal), Either) : std::move(equal);
        } while (Take(","));
        if (!Take(")")) return Fail("a closing parenthesis is missing");
        return negated ? Not(std::move(any)) : std::move(any);
    }

    NodePtr Arithmetic(NodePtr left, NodePtr right, Combination::Rule rule) {
        if (!left || !right) return nullptr;
        if (left->fKind != Kind::kNumber || right->fKind != Kind::kNumber) return Fail("arithmetic needs numbers");
        return std::make_unique<Combination>(Kind::kNumber, rule, std::move(left), std::move(right));
    }

    NodePtr Sum() {
        NodePtr left = Product();
        while (left) {
            if (Take("+"))
                left = Arithmetic(std::move(left), Product(), [](double a, double b) { return a + b; });
            else if (Take("-"))
                left = Arithmetic(std::move(left), Product(), Difference);
            else
                break;
        }
        return left;
    }

    NodePtr Product() {
        NodePtr left = Factor();
        while (left) {
            if (Take("*"))
                left = Arithmetic(std::move(left), Factor(), [](double a, double b) { return a * b; });
            else if (Take("/"))
                left = Arithmetic(std::move(left), Factor(), [](double a, double b) { return a / b; });
            else
                break;
        }
        return left;
    }

    NodePtr Factor() {
        const Level level(fDepth);
        if (fDepth > kMostLevels) return Fail("it is nested too deeply");
        SkipBlanks();
        if (fAt >= fText.size()) return Fail("a value or a variable is missing");
        const char c = fText[fAt];
        if (Take("(")) {
            NodePtr inner = Condition();
            if (inner && !Take(")")) return Fail("a closing parenthesis is missing");
            return inner;
        }
        if (c == '\'' || c == '"' || c == '`') {
            const auto text = Quoted(c);
            if (!text) return nullptr;
            if (c == '`') return Column(*text);
            return std::make_unique<Constant>(*text);
        }
        if (Take("-")) return Arithmetic(std::make_unique<Constant>(0.0), Factor(), Difference);
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            double value = 0;
            const auto [end, code] = std::from_chars(fText.data() + fAt, fText.data() + fText.size(), value);
            if (code != std::errc()) return Fail("this isn't a number that can be used");
            fAt = static_cast<std::size_t>(end - fText.data());
            return std::make_unique<Constant>(value);
        }
        if (TakeWord("missing")) {
            if (!Take("(")) return Fail("\"missing\" needs a variable in parentheses");
            NodePtr inner = Factor();
            if (inner && !Take(")")) return Fail("a closing parenthesis is missing");
            if (!inner) return nullptr;
            return std::make_unique<Missing>(std::move(inner));
        }
        const std::string name = PeekWord();
        if (name.empty()) return Fail("a value or a variable is expected");
        NodePtr column = Column(name);
        if (column) fAt += name.size();
        return column;
    }

    NodePtr Column(const std::string& name) {
        const int index = fContent.Find(name);
        if (index < 0) return Fail("there is no variable \"" + name + "\"" + SuggestVariable(fContent, name));
        return std::make_unique<ColumnCells>(index, fContent.fColumns[index].fVariable.IsText());
    }

    // A text in quotes; a doubled quote stands for one.
    std::optional<std::string> Quoted(char quote) {
        std::string text;
        std::size_t at = fAt + 1;
        for (; at < fText.size(); ++at) {
            if (fText[at] == quote) {
                if (at + 1 >= fText.size() || fText[at + 1] != quote) {
                    fAt = at + 1;
                    return text;
                }
                ++at;
            }
            text += fText[at];
        }
        Fail("a closing quote is missing");
        return std::nullopt;
    }

    struct TruthConstant : Constant {
        TruthConstant() : Constant(1.0) { fKind = Kind::kTruth; }
        void Evaluate(const Rows& rows, Cells& cells) const override { cells.fNumbers.assign(rows.fCount, 1.0); }
    };

    const std::string& fText;
    const TableContent& fContent;
    std::size_t fAt = 0;
    int fDepth = 0;
    std::optional<DataError> fError;
};

}  // namespace

Filter::Filter(std::unique_ptr<const Node> root) : fRoot(std::move(root)) {}
Filter::~Filter() = default;

Outcome<std::shared_ptr<const Filter>> Filter::Parse(const std::string& text, const TableContent& content) {
    return ConditionParser(text, content).Parse();
}

void Filter::Select(const TableContent& content, std::size_t block, std::size_t count,
                    std::vector<std::uint8_t>& selected) const {
    Cells cells;
    fRoot->Evaluate({content, block, count}, cells);
    selected.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        selected[i] = cells.fNumbers[i] == 1.0 ? 1 : 0;
}

}  // namespace host
