#include "app/MeansOptions.h"

#include "command/CommandParser.h"

#include <algorithm>
#include <string_view>

namespace app {

namespace {

using command::CommandTree;
using command::Item;

constexpr const char* kMeans = "EMMEANS";

/// The pieces between commas, blank ones left out.
std::vector<std::string> Pieces(const std::string& text) {
    std::vector<std::string> pieces;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        if (text.find_first_not_of(" \t", begin) < end) pieces.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return pieces;
}

/// The first factor of a request, null without factors; count: how many there are, as far as one or more.
const Item* FirstFactor(const command::Subcommand& request, std::size_t& count) {
    const command::Parameter* tables = request.Find("TABLES");
    count = 0;
    if (!tables || tables->fvItems.empty() || tables->fvItems.front().IsWord("INTERCEPT")) return nullptr;
    const Item* item = &tables->fvItems.front();
    count = item->fKind == Item::Kind::kWord ? 1 : 2;
    while (!item->fvParts.empty())
        item = &item->fvParts.front();
    return item;
}

class MeansOption {
public:
    MeansOption(CommandTree& tree, const CommandOption& option, command::CommandError& error)
        : fTree(tree), fOption(option), fAt{0, 0, option.fFlag}, fError(error) {}

    bool Apply(const std::string& text) {
        const std::string_view parameter = fOption.fParameter;
        if (parameter == "TABLES") return MakeRequests(text);
        if (fTree.All(kMeans).empty()) return Refuse("name the means with --emmeans");
        if (parameter == "AT") return HoldCovariates(text);
        if (parameter == "REFERENCE") return NameReference(text);
        if (parameter == "CONTRAST") NameCompared();
        return SetInAll(text);
    }

private:
    bool Refuse(const std::string& text) {
        fError = {text, fAt};
        return false;
    }

    bool MakeRequests(const std::string& text) {
        const std::vector<std::string> effects = Pieces(text);
        if (effects.empty()) return Refuse("expected effects of factors, as in a,a*b");
        fTree.Remove(kMeans);
        for (const std::string& effect : effects) {
            CommandTree one;
            if (!command::SetFromOption(one, kMeans, "TABLES", effect, fOption.fFlag, fError)) return false;
            fTree.Add(kMeans, fAt) = *one.Find(kMeans);
        }
        return true;
    }

    template <class Change>
    bool ForAll(Change change) {
        for (command::Subcommand& subcommand : fTree.fvSubcommands)
            if (subcommand.fName == kMeans && !change(subcommand)) return false;
        return true;
    }

    bool SetInAll(const std::string& text) {
        CommandTree one;
        if (!command::SetFromOption(one, kMeans, fOption.fParameter, text, fOption.fFlag, fError)) return false;
        const std::vector<Item> items = one.Find(kMeans, fOption.fParameter)->fvItems;
        return ForAll([&](command::Subcommand& request) {
            std::size_t factors = 0;
            const bool compares = FirstFactor(request, factors) != nullptr;
            if (compares || std::string_view(fOption.fParameter) != "CONTRAST")
                request.Set(fOption.fParameter, items, fAt);
            return true;
        });
    }

    void NameCompared() {
        ForAll([&](command::Subcommand& request) {
            std::size_t factors = 0;
            const Item* first = FirstFactor(request, factors);
            if (factors > 1 && !request.Find("COMPARE")) request.Set("COMPARE", {Item::Name(first->fText, fAt)}, fAt);
            return true;
        });
    }

    bool NameReference(const std::string& text) {
        Item item = Item::Text(text, fAt);
        if (const auto read = command::ParseItems(text, fOption.fFlag, fError); read && read->size() == 1) {
            const Item& only = read->front();
            if (only.fKind == Item::Kind::kNumber || only.IsWord("FIRST") || only.IsWord("LAST")) item = only;
        }
        return ForAll([&](command::Subcommand& request) {
            std::size_t factors = 0;
            if (FirstFactor(request, factors)) request.Set("REFERENCE", {item}, fAt);
            return true;
        });
    }

    bool HoldCovariates(const std::string& text) {
        std::vector<Item> values;
        for (const std::string& piece : Pieces(text)) {
            const std::size_t equals = piece.rfind('=');
            const std::size_t begin = piece.find_first_not_of(" \t");
            const auto number = equals == std::string::npos
                                    ? std::nullopt
                                    : command::ParseItems(piece.substr(equals + 1), fOption.fFlag, fError);
            if (!number || number->size() != 1 || number->front().fKind != Item::Kind::kNumber || begin == equals)
                return Refuse("expected covariates with their values, as in x=2.5,z=1");
            const std::size_t end = piece.find_last_not_of(" \t", equals - 1);
            values.push_back(Item::Group(Item::Name(piece.substr(begin, end - begin + 1), fAt), {number->front()}));
        }
        return ForAll([&](command::Subcommand& request) {
            request.Set("AT", values, fAt);
            return true;
        });
    }

    CommandTree& fTree;
    const CommandOption& fOption;
    command::Position fAt;
    command::CommandError& fError;
};

}  // namespace

bool ApplyMeansOption(CommandTree& tree, const CommandOption& option, const std::string& text,
                      command::CommandError& error) {
    return MeansOption(tree, option, error).Apply(text);
}

}  // namespace app
