#include "command/CommandParser.h"

#include "command/Keywords.h"
#include "command/Lexer.h"
#include "command/Shapes.h"
#include "command/Words.h"

#include <cmath>

namespace command {

namespace {

class Parser {
public:
    explicit Parser(std::vector<Token> tokens) : fvTokens(std::move(tokens)) {}

    CommandTree Command() {
        CommandTree tree;
        if (!(Now().fKind == Token::Kind::kName && EqualWords(Now().fText, "HIERFIT")))
            throw CommandError{"expected the word HIERFIT, found " + Now().Shown(), Now().fAt};
        ++fNext;
        while (Now().Is('/'))
            ReadSubcommand(tree);
        if (Now().Is('.')) ++fNext;
        if (Now().fKind != Token::Kind::kEnd)
            throw CommandError{"expected / and a subcommand, found " + Now().Shown(), Now().fAt};
        return tree;
    }

    std::vector<Item> AllItems() {
        std::vector<Item> items = Items();
        if (Now().fKind != Token::Kind::kEnd) throw CommandError{"unexpected " + Now().Shown(), Now().fAt};
        return items;
    }

private:
    const Token& Now() const { return fvTokens[fNext]; }
    const Token& Ahead() const { return fvTokens[std::min(fNext + 1, fvTokens.size() - 1)]; }
    bool AtSetting() const { return Now().fKind == Token::Kind::kName && Ahead().Is('='); }

    void ReadSubcommand(CommandTree& tree) {
        ++fNext;
        const Token name = Now();
        const SubcommandWord* word = name.fKind == Token::Kind::kName ? FindSubcommandWord(name.fText) : nullptr;
        if (!word) {
            std::vector<std::string> names;
            for (const SubcommandWord& known : SubcommandWords())
                names.push_back(known.fName);
            const bool isName = name.fKind == Token::Kind::kName;
            throw CommandError{isName ? "there is no subcommand " + name.fText + SuggestionText(name.fText, names, true)
                                      : "expected a subcommand, found " + name.Shown(),
                               name.fAt};
        }
        if (!word->fRepeatable && tree.Find(word->fName))
            throw CommandError{"the subcommand " + word->fName + " stands twice; it may stand once", name.fAt};
        ++fNext;
        Subcommand& subcommand = tree.Add(word->fName, name.fAt);
        if (Now().Is('=')) ++fNext;
        if (word->fParameters.front().fName.empty()) {
            ReadList(subcommand, *word, name);
        } else {
            while (AtSetting())
                ReadParameter(subcommand, *word);
            if (!Now().Is('/') && !Now().Is('.') && Now().fKind != Token::Kind::kEnd) RefuseStray(*word);
        }
    }

    void ReadList(Subcommand& subcommand, const SubcommandWord& word, const Token& name) {
        Parameter list{"", name.fAt, Items()};
        if (list.fvItems.empty())
            throw CommandError{word.fName + " is empty; expected " + JoinOr(word.fParameters.front().fWords), name.fAt};
        CheckShape(word.fName, word.fParameters.front(), list);
        subcommand.fvParameters.push_back(std::move(list));
    }

    void ReadParameter(Subcommand& subcommand, const SubcommandWord& word) {
        const Token name = Now();
        const ParameterWord* parameter = FindParameterWord(word, name.fText);
        if (!parameter) RefuseParameter(word, name);
        if (subcommand.Find(parameter->fName))
            throw CommandError{parameter->fName + " stands twice in " + word.fName, name.fAt};
        fNext += 2;
        Parameter read{parameter->fName, name.fAt, Items()};
        CheckShape(word.fName, *parameter, read);
        subcommand.fvParameters.push_back(std::move(read));
    }

    [[noreturn]] void RefuseParameter(const SubcommandWord& word, const Token& name) const {
        std::vector<std::string> names;
        for (const ParameterWord& known : word.fParameters)
            names.push_back(known.fName);
        throw CommandError{word.fName + " has no parameter " + name.fText + SuggestionText(name.fText, names, true),
                           name.fAt};
    }

    [[noreturn]] void RefuseStray(const SubcommandWord& word) const {
        if (Now().fKind == Token::Kind::kName) {
            if (!FindParameterWord(word, Now().fText)) RefuseParameter(word, Now());
            throw CommandError{"expected = behind " + Now().fText + ", found " + Ahead().Shown(), Ahead().fAt};
        }
        throw CommandError{"expected a parameter of " + word.fName + ", found " + Now().Shown(), Now().fAt};
    }

    std::vector<Item> Items() {
        std::vector<Item> items;
        while (true) {
            if (Now().Is(',')) {
                if (items.empty()) throw CommandError{"a list can't start with a comma", Now().fAt};
                ++fNext;
                if (Now().Is(',')) throw CommandError{"two commas without an item between them", Now().fAt};
            } else if (Now().Is(';') || Now().Is('|')) {
                items.push_back(Item::Mark(Now().fText[0], Now().fAt));
                ++fNext;
            } else if (StartsItem() && !AtSetting()) {
                items.push_back(OneItem());
            } else {
                return items;
            }
        }
    }

    bool StartsItem() const {
        const Token::Kind kind = Now().fKind;
        return kind != Token::Kind::kSign && kind != Token::Kind::kEnd;
    }

    Item OneItem() {
        const Token token = Now();
        if (token.fKind == Token::Kind::kNumber) {
            ++fNext;
            Item item = Item::Number(token.fNumber, token.fAt);
            item.fText = token.fText;
            return item;
        }
        if (token.fKind == Token::Kind::kText) {
            ++fNext;
            return Item::Text(token.fText, token.fAt);
        }
        Item item = ProductOfWords();
        while (Now().Is('('))
            item = GroupOf(std::move(item));
        return item;
    }

    Item ProductOfWords() {
        const Position at = Now().fAt;
        std::vector<Item> parts{OneWord()};
        while (Now().Is('*') || Now().Is(':')) {
            ++fNext;
            parts.push_back(OneWord());
        }
        return Item::Product(std::move(parts), at);
    }

    Item OneWord() {
        const Token token = Now();
        if (token.fKind != Token::Kind::kName && token.fKind != Token::Kind::kQuotedName)
            throw CommandError{"expected a name, found " + token.Shown(), token.fAt};
        ++fNext;
        Item item = Item::Word(token.fText, token.fAt);
        item.fQuoted = token.fKind == Token::Kind::kQuotedName;
        if (Now().Is('@')) {
            ++fNext;
            const Token& block = Now();
            if (block.fKind != Token::Kind::kNumber || !(block.fNumber >= 1 && block.fNumber < 1e6) ||
                block.fNumber != std::floor(block.fNumber))
                throw CommandError{"expected the number of a random block behind @, found " + block.Shown(), block.fAt};
            item.fBlock = static_cast<int>(block.fNumber);
            ++fNext;
        }
        return item;
    }

    Item GroupOf(Item head) {
        const Position open = Now().fAt;
        if (++fDepth > kDeepest) throw CommandError{"parentheses are nested too deeply", open};
        ++fNext;
        std::vector<Item> inner = Items();
        if (!Now().Is(')')) {
            if (Now().fKind == Token::Kind::kEnd) throw CommandError{"( is not closed", open};
            throw CommandError{"expected ), found " + Now().Shown(), Now().fAt};
        }
        if (inner.empty()) throw CommandError{"nothing stands between the parentheses", open};
        ++fNext;
        --fDepth;
        return Item::Group(std::move(head), std::move(inner));
    }

    static constexpr int kDeepest = 100;
    std::vector<Token> fvTokens;
    std::size_t fNext = 0;
    int fDepth = 0;
};

}  // namespace

std::optional<CommandTree> ParseCommand(std::string_view text, CommandError& error) {
    try {
        return Parser(Tokenize(text, kCommandRules)).Command();
    } catch (const CommandError& refused) {
        error = refused;
        return std::nullopt;
    }
}

std::optional<std::vector<Item>> ParseItems(std::string_view text, const char* source, CommandError& error) {
    try {
        LexerRules rules = kCommandRules;
        rules.fSource = source;
        return Parser(Tokenize(text, rules)).AllItems();
    } catch (const CommandError& refused) {
        error = refused;
        return std::nullopt;
    }
}

bool SetFromOption(CommandTree& tree, std::string_view subcommand, std::string_view parameter, std::string_view text,
                   const char* option, CommandError& error) {
    std::optional<std::vector<Item>> items = ParseItems(text, option, error);
    if (!items) return false;
    Parameter read{std::string(parameter), {0, 0, option}, std::move(*items)};
    const SubcommandWord* word = FindSubcommandWord(subcommand);
    try {
        CheckShape(word->fName, *FindParameterWord(*word, parameter), read);
    } catch (const CommandError& refused) {
        error = refused;
        return false;
    }
    tree.Set(subcommand, parameter, std::move(read.fvItems), read.fAt);
    return true;
}

}  // namespace command
