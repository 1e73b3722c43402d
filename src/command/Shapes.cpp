#include "command/Shapes.h"

#include "command/Words.h"

namespace command {

namespace {

using Kind = Item::Kind;

class ShapeCheck {
public:
    ShapeCheck(const std::string& subcommand, const ParameterWord& word, Parameter& parameter)
        : fSubcommand(subcommand), fWord(word), fParameter(parameter) {}

    void Run() {
        std::vector<Item>& items = fParameter.fvItems;
        switch (fWord.fShape) {
            case Shape::kName:
                Single("a variable");
                return Names();
            case Shape::kNames:
                NotEmpty("a variable");
                return Names();
            case Shape::kNameOrNumber:
                Single("a variable or a number");
                if (items.front().fKind != Kind::kNumber) Names();
                return;
            case Shape::kTerm:
                if (items.size() > 1) Refuse(items[1], "expected one effect");
                return Terms();
            case Shape::kTerms:
                NotEmpty("an effect");
                return Terms();
            case Shape::kWord:
                Single(JoinOr(fWord.fWords));
                return Keyword(items.front());
            case Shape::kWords:
                for (Item& item : items)
                    Keyword(item);
                return;
            case Shape::kNumber:
                Single("a number");
                return Numbers();
            case Shape::kNumbers:
                NotEmpty("a number");
                return Numbers();
            case Shape::kCriterion:
                return Criterion();
            case Shape::kText:
                Single("a text in quotes");
                if (items.front().fKind != Kind::kText) Refuse(items.front(), "expected a text in quotes");
                return;
            case Shape::kTextOrName:
                Single("a text in quotes");
                if (items.front().fKind != Kind::kText && items.front().fKind != Kind::kWord)
                    Refuse(items.front(), "expected a text in quotes");
                return;
            case Shape::kTexts:
                NotEmpty("a text in quotes");
                for (const Item& item : items)
                    if (item.fKind != Kind::kText && item.fKind != Kind::kWord && item.fKind != Kind::kNumber)
                        Refuse(item, "expected a text in quotes");
                return;
            case Shape::kFormat:
                return Single("a number format such as F12.3");
            case Shape::kReference:
                Single("FIRST, LAST, a number or a text in quotes");
                if (items.front().fKind == Kind::kWord) Keyword(items.front());
                return;
            case Shape::kAt:
                return At();
            case Shape::kRows:
                return NotEmpty("a row of coefficients");
        }
    }

private:
    std::string Whole() const { return fWord.fName.empty() ? fSubcommand : fWord.fName; }

    [[noreturn]] void Refuse(const Item& item, const std::string& text) const {
        throw CommandError{Whole() + ": " + text + ", found " + PrintItem(item), item.fAt};
    }

    void NotEmpty(const std::string& what) const {
        if (fParameter.fvItems.empty()) throw CommandError{Whole() + ": expected " + what, fParameter.fAt};
    }

    void Single(const std::string& what) const {
        NotEmpty(what);
        if (fParameter.fvItems.size() > 1) Refuse(fParameter.fvItems[1], "expected one value only");
    }

    /// Products of names come apart: subjects written a*b are the two variables.
    void Names() {
        std::vector<Item> names;
        for (const Item& item : fParameter.fvItems) {
            const bool product = item.fKind == Kind::kProduct;
            if (!product && item.fKind != Kind::kWord) Refuse(item, "expected a variable's name");
            if (product && fWord.fShape != Shape::kNames) Refuse(item, "expected one variable");
            if (product) {
                names.insert(names.end(), item.fvParts.begin(), item.fvParts.end());
            } else {
                names.push_back(item);
            }
        }
        for (const Item& name : names)
            if (name.fBlock) Refuse(name, "expected a variable's name");
        fParameter.fvItems = std::move(names);
    }

    void Terms() const {
        for (const Item& item : fParameter.fvItems)
            Term(item);
    }

    void Term(const Item& item) const {
        if (item.fKind == Kind::kText || item.fKind == Kind::kNumber || item.fKind == Kind::kMark || item.fBlock)
            Refuse(item, "expected an effect such as a, a*b or b(a)");
        if (item.fKind == Kind::kGroup) {
            if (item.fvParts.size() > 2) Refuse(item.fvParts[2], "expected * between the names of a nested effect");
            if (item.fvParts[0].fKind == Kind::kGroup) Refuse(item, "expected an effect such as a, a*b or c(b(a))");
        }
        for (const Item& part : item.fvParts)
            Term(part);
    }

    void Keyword(Item& item) const {
        Item& head = item.fKind == Kind::kGroup ? item.fvParts.front() : item;
        if (head.fKind != Kind::kWord) Refuse(item, "expected " + JoinOr(fWord.fWords));
        for (const std::string& word : fWord.fWords)
            if (head.IsWord(word)) {
                head.fText = word;
                return Argument(item, word);
            }
        throw CommandError{Whole() + " has no choice " + head.fText + SuggestionText(head.fText, fWord.fWords, true),
                           head.fAt};
    }

    /// Only HISTORY(n), POWER(p) and the names of saved variables stand in parentheses.
    void Argument(const Item& item, const std::string& word) const {
        const bool given = item.fKind == Kind::kGroup;
        const Item* argument = given ? &item.fvParts[1] : nullptr;
        if (given && item.fvParts.size() > 2) Refuse(item.fvParts[2], "expected one value in the parentheses");
        if (word == "POWER" && !(given && argument->fKind == Kind::kNumber))
            Refuse(item, "expected POWER with its exponent, as in POWER(0.5)");
        if (!given) return;
        const bool number = word == "POWER" || word == "HISTORY";
        const bool name = fSubcommand == "SAVE";
        if (!number && !name) Refuse(item, word + " takes nothing in parentheses");
        if (number && argument->fKind != Kind::kNumber) Refuse(*argument, "expected a number");
        if (name && argument->fKind != Kind::kWord) Refuse(*argument, "expected a name for the new variable");
    }

    void Numbers() const {
        for (const Item& item : fParameter.fvItems)
            if (item.fKind != Kind::kNumber) Refuse(item, "expected a number");
    }

    void Criterion() {
        std::vector<Item>& items = fParameter.fvItems;
        NotEmpty("a number");
        if (items[0].fKind != Kind::kNumber) Refuse(items[0], "expected a number");
        if (items.size() > 1) Keyword(items[1]);
        if (items.size() > 2) Refuse(items[2], "expected a number and one word");
    }

    void At() const {
        NotEmpty("a covariate and its value, as in x(2.5)");
        for (const Item& item : fParameter.fvItems) {
            const bool good = item.fKind == Kind::kGroup && item.fvParts.size() == 2 &&
                              item.fvParts[0].fKind == Kind::kWord && item.fvParts[1].fKind == Kind::kNumber;
            if (!good) Refuse(item, "expected a covariate and its value, as in x(2.5)");
        }
    }

    const std::string& fSubcommand;
    const ParameterWord& fWord;
    Parameter& fParameter;
};

}  // namespace

void CheckShape(const std::string& subcommand, const ParameterWord& word, Parameter& parameter) {
    ShapeCheck(subcommand, word, parameter).Run();
}

}  // namespace command
