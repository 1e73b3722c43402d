#include "host/strings/Explanations.h"

#include "host/strings/Catalogue.h"

#include <nlohmann/json.hpp>

namespace host {

namespace {

using Json = nlohmann::ordered_json;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Behind the place that begins at a position of a message's text, ^1 or a list [...]1; the position itself when none
/// begins there.
std::size_t BehindPlace(const std::string& says, std::size_t at) {
    const std::size_t digit = says[at] == '^' ? at + 1 : says[at] == '[' ? says.find(']', at) + 1 : std::string::npos;
    return digit < says.size() && digit > at && IsDigit(says[digit]) ? digit + 1 : at;
}

/// What is the same in all messages of a text. Its final period goes: in a split run the split's name comes before.
std::vector<std::string> FixedPieces(const std::string& says) {
    std::vector<std::string> pieces(1);
    for (std::size_t at = 0; at < says.size();) {
        const std::size_t behind = BehindPlace(says, at);
        if (behind > at) {
            pieces.emplace_back();
            at = behind;
        } else {
            pieces.back() += says[at++];
        }
    }
    if (pieces.back().ends_with('.')) pieces.back().pop_back();
    return pieces;
}

/// How many letters a message shares with a text, 0 when it isn't one of the text's messages.
std::size_t SharedLetters(std::string_view message, const std::string& says) {
    std::size_t shared = 0, at = 0;
    for (const std::string& piece : FixedPieces(says)) {
        at = message.find(piece, at);
        if (at == std::string_view::npos) return 0;
        at += piece.size();
        shared += piece.size();
    }
    return shared;
}

Explanation ReadExplanation(const std::string& code, const Json& entry) {
    Explanation explanation{code, entry.at("kind"), {}, entry.at("cause"), entry.at("remedy")};
    for (const std::string& key : entry.value("keys", std::vector<std::string>()))
        explanation.fvSays.push_back(Catalogue::Current().Text(key));
    for (const std::string& text : entry.value("texts", std::vector<std::string>()))
        explanation.fvSays.push_back(text);
    return explanation;
}

}  // namespace

const Explanations& Explanations::Current() {
    static const Explanations explanations;
    return explanations;
}

Explanations::Explanations() {
    const auto root = Json::parse(kBuiltInExplanations);
    for (const Json& source : root.at("groups")) {
        ExplanationGroup& group = fvGroups.emplace_back();
        group.fTitle = source.at("title");
        group.fAbout = source.at("about");
        for (const auto& [code, entry] : source.at("messages").items())
            group.fvExplanations.push_back(ReadExplanation(code, entry));
    }
}

const Explanation* Explanations::Find(std::string_view code) const {
    for (const ExplanationGroup& group : fvGroups)
        for (const Explanation& explanation : group.fvExplanations)
            if (explanation.fCode == code) return &explanation;
    return nullptr;
}

const Explanation* Explanations::FindMessage(std::string_view text) const {
    const Explanation* found = nullptr;
    std::size_t most = 0;
    for (const ExplanationGroup& group : fvGroups) {
        for (const Explanation& explanation : group.fvExplanations) {
            for (const std::string& says : explanation.fvSays) {
                const std::size_t shared = SharedLetters(text, says);
                if (shared <= most) continue;
                most = shared;
                found = &explanation;
            }
        }
    }
    return found;
}

}  // namespace host
