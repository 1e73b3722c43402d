#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A HIERFIT command as written: subcommands, their parameters and the items of each, with the places where they stand.
/// The parser, the formula and the program's options all build this tree; the printer and the resolver read it.
namespace command {

/// Where something stands, for error messages. Lines and columns count from 1, columns in characters.
struct Position {
    int fLine = 0;
    int fColumn = 0;
    const char* fSource = nullptr;  ///< null: the command's text; else what else it was read from ("formula", "--rcov")

    std::string Text() const;  ///< "line 3, column 5", "formula, column 12", "--rcov"; empty if unknown
};

/// Why a command is refused. Thrown inside the room only; every public function hands it back as a value.
struct CommandError {
    std::string fText;
    Position fAt;
    std::string Message() const;
};

/// One item of a parameter's list.
struct Item {
    enum class Kind {
        kWord,     ///< a keyword or a name; fQuoted when it stood in backticks and can only be a name
        kText,     ///< 'text'
        kNumber,   ///< fNumber, and fText as written
        kProduct,  ///< fvParts joined by *
        kGroup,    ///< fvParts[0] with the items in its parentheses behind it
        kMark      ///< ";" or "|"
    };
    Kind fKind = Kind::kWord;
    Position fAt;
    std::string fText;
    bool fQuoted = false;
    double fNumber = 0.0;
    int fBlock = 0;  ///< a word's random block, as in INTERCEPT@2; 0 none
    std::vector<Item> fvParts;

    static Item Word(std::string text, Position at = {});
    static Item Name(std::string text, Position at = {});  ///< a variable's name, never a keyword
    static Item Text(std::string text, Position at = {});
    static Item Number(double value, Position at = {});
    static Item Product(std::vector<Item> parts, Position at = {});
    static Item Group(Item head, std::vector<Item> inner);
    static Item Mark(char mark, Position at = {});

    bool IsWord(std::string_view keyword) const;  ///< an unquoted word, case ignored
};

struct Parameter {
    std::string fName;  ///< in capitals; empty for the list of a subcommand that is one list
    Position fAt;
    std::vector<Item> fvItems;
};

struct Subcommand {
    std::string fName;  ///< in capitals
    Position fAt;
    std::vector<Parameter> fvParameters;

    const Parameter* Find(std::string_view name) const;
    /// Sets a parameter's items, in place of those that stand there.
    void Set(std::string_view name, std::vector<Item> items, Position at = {});
};

struct CommandTree {
    std::vector<Subcommand> fvSubcommands;

    const Subcommand* Find(std::string_view name) const;
    const Parameter* Find(std::string_view subcommand, std::string_view parameter) const;
    std::vector<const Subcommand*> All(std::string_view name) const;
    /// The subcommand of this name, added when there is none.
    Subcommand& Get(std::string_view name);
    Subcommand& Add(std::string_view name, Position at = {});
    /// Drops all subcommands of a name.
    void Remove(std::string_view name);
    void Set(std::string_view subcommand, std::string_view parameter, std::vector<Item> items, Position at = {}) {
        Get(subcommand).Set(parameter, std::move(items), at);
    }
};

/// The command as text that ParseCommand reads back into an equal tree.
std::string PrintCommand(const CommandTree& tree);
/// One item as it would stand in a command.
std::string PrintItem(const Item& item);

}  // namespace command
