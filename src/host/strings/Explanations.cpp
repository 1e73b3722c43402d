#include "host/strings/Explanations.h"

#include "host/strings/Catalogue.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace host {

const Explanations& Explanations::Current() {
    static const Explanations explanations;
    return explanations;
}

Explanations::Explanations() {
    const Catalogue& texts = Catalogue::Current();
    const auto root = nlohmann::ordered_json::parse(kBuiltInExplanations);
    for (const auto& [code, entry] : root.at("explanations").items()) {
        Explanation explanation;
        explanation.fCode = code;
        explanation.fKind = entry.at("kind");
        explanation.fSays = entry.contains("key") ? texts.Text(entry.at("key").get<std::string>())
                                                  : entry.at("says").get<std::string>();
        explanation.fCause = entry.at("cause");
        explanation.fRemedy = entry.at("remedy");
        if (entry.contains("also")) explanation.fBeginnings = entry.at("also");
        // A family's shape begins like nothing in particular, and neither does a text with a place in front.
        const std::string fixed = explanation.fSays.substr(0, explanation.fSays.find_first_of("^["));
        if (explanation.fKind != "family" && !fixed.empty()) explanation.fBeginnings.push_back(fixed);
        fAll.push_back(std::move(explanation));
    }
}

const Explanation* Explanations::Find(std::string_view code) const {
    const auto found =
        std::find_if(fAll.begin(), fAll.end(), [&](const Explanation& entry) { return entry.fCode == code; });
    return found == fAll.end() ? nullptr : &*found;
}

std::string Explanations::CodeOf(std::string_view message) const {
    for (const Explanation& entry : fAll) {
        for (const std::string& beginning : entry.fBeginnings)
            if (message.starts_with(beginning)) return entry.fCode;
    }
    return {};
}

}  // namespace host
