#include "command/CommandTree.h"

#include "command/Lexer.h"
#include "command/Words.h"

namespace command {

std::string Position::Text() const {
    if (fSource) return fColumn > 0 ? std::string(fSource) + ", column " + std::to_string(fColumn) : fSource;
    if (fLine <= 0) return {};
    return "line " + std::to_string(fLine) + ", column " + std::to_string(fColumn);
}

std::string CommandError::Message() const {
    const std::string where = fAt.Text();
    return where.empty() ? fText : where + ": " + fText;
}

Item Item::Word(std::string text, Position at) {
    Item item;
    item.fText = std::move(text);
    item.fAt = at;
    return item;
}

Item Item::Name(std::string text, Position at) {
    Item item = Word(std::move(text), at);
    item.fQuoted = true;
    return item;
}

Item Item::Text(std::string text, Position at) {
    Item item = Word(std::move(text), at);
    item.fKind = Kind::kText;
    return item;
}

Item Item::Number(double value, Position at) {
    Item item = Word(NumberText(value), at);
    item.fKind = Kind::kNumber;
    item.fNumber = value;
    return item;
}

Item Item::Product(std::vector<Item> parts, Position at) {
    if (parts.size() == 1) return parts.front();
    Item item;
    item.fKind = Kind::kProduct;
    item.fAt = at;
    item.fvParts = std::move(parts);
    return item;
}

Item Item::Group(Item head, std::vector<Item> inner) {
    Item item;
    item.fKind = Kind::kGroup;
    item.fAt = head.fAt;
    item.fvParts = std::move(inner);
    item.fvParts.insert(item.fvParts.begin(), std::move(head));
    return item;
}

Item Item::Mark(char mark, Position at) {
    Item item = Word(std::string(1, mark), at);
    item.fKind = Kind::kMark;
    return item;
}

bool Item::IsWord(std::string_view keyword) const {
    return fKind == Kind::kWord && !fQuoted && EqualWords(fText, keyword);
}

const Parameter* Subcommand::Find(std::string_view name) const {
    for (const Parameter& parameter : fvParameters)
        if (parameter.fName == name) return &parameter;
    return nullptr;
}

void Subcommand::Set(std::string_view name, std::vector<Item> items, Position at) {
    for (Parameter& parameter : fvParameters)
        if (parameter.fName == name) {
            parameter.fvItems = std::move(items);
            parameter.fAt = at;
            return;
        }
    fvParameters.push_back({std::string(name), at, std::move(items)});
}

const Subcommand* CommandTree::Find(std::string_view name) const {
    for (const Subcommand& subcommand : fvSubcommands)
        if (subcommand.fName == name) return &subcommand;
    return nullptr;
}

const Parameter* CommandTree::Find(std::string_view subcommand, std::string_view parameter) const {
    const Subcommand* found = Find(subcommand);
    return found ? found->Find(parameter) : nullptr;
}

std::vector<const Subcommand*> CommandTree::All(std::string_view name) const {
    std::vector<const Subcommand*> all;
    for (const Subcommand& subcommand : fvSubcommands)
        if (subcommand.fName == name) all.push_back(&subcommand);
    return all;
}

Subcommand& CommandTree::Get(std::string_view name) {
    for (Subcommand& subcommand : fvSubcommands)
        if (subcommand.fName == name) return subcommand;
    return Add(name);
}

Subcommand& CommandTree::Add(std::string_view name, Position at) {
    fvSubcommands.push_back({std::string(name), at, {}});
    return fvSubcommands.back();
}

void CommandTree::Remove(std::string_view name) {
    std::erase_if(fvSubcommands, [&](const Subcommand& subcommand) { return subcommand.fName == name; });
}

namespace {

std::string Quoted(const std::string& text, char quote) {
    std::string quoted(1, quote);
    for (const char c : text) {
        quoted += c;
        if (c == quote) quoted += c;
    }
    return quoted + quote;
}

std::string PrintItems(const std::vector<Item>& items, std::size_t first) {
    std::string text;
    for (std::size_t i = first; i < items.size(); ++i)
        text += (i > first ? " " : "") + PrintItem(items[i]);
    return text;
}

}  // namespace

std::string PrintItem(const Item& item) {
    switch (item.fKind) {
        case Item::Kind::kWord: {
            const bool plain = IsPlainName(item.fText) && !(item.fQuoted && IsReservedName(item.fText));
            const std::string name = plain ? item.fText : Quoted(item.fText, '`');
            return item.fBlock > 0 ? name + "@" + std::to_string(item.fBlock) : name;
        }
        case Item::Kind::kText:
            return Quoted(item.fText, '\'');
        case Item::Kind::kProduct: {
            std::string text;
            for (const Item& part : item.fvParts)
                text += (text.empty() ? "" : "*") + PrintItem(part);
            return text;
        }
        case Item::Kind::kGroup:
            return PrintItem(item.fvParts.front()) + "(" + PrintItems(item.fvParts, 1) + ")";
        case Item::Kind::kNumber:
        case Item::Kind::kMark:
            break;
    }
    return item.fText;
}

std::string PrintCommand(const CommandTree& tree) {
    std::string text = "HIERFIT";
    for (const Subcommand& subcommand : tree.fvSubcommands) {
        text += "\n  /" + subcommand.fName;
        for (const Parameter& parameter : subcommand.fvParameters) {
            const bool named = !parameter.fName.empty();
            text += named ? " " + parameter.fName + "=" : "";
            text += (named || parameter.fvItems.empty() ? "" : " ") + PrintItems(parameter.fvItems, 0);
        }
    }
    return text + "\n";
}

}  // namespace command
