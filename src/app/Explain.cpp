#include "app/Explain.h"

#include "app/ExitCode.h"
#include "app/ResultWriter.h"
#include "app/Terminal.h"
#include "command/Words.h"
#include "host/strings/Explanations.h"
#include "report/DisplayText.h"

#include <algorithm>
#include <string_view>

namespace app {

namespace {

using host::Explanation;
using host::ExplanationGroup;
using Groups = std::vector<ExplanationGroup>;

std::vector<std::string> Says(const Explanation& entry) {
    return entry.fvSays.empty() ? std::vector<std::string>{"Nothing is shown for it."} : entry.fvSays;
}

std::string Paragraph(const std::string& text) {
    std::string lines;
    for (const std::string& line : report::Wrap(text, std::min(OutputWidth(), 100)))
        lines += line + "\n";
    return lines;
}

std::string Whole(const Explanation& entry) {
    std::string text = entry.fCode + " (" + entry.fKind + ")\n\n";
    for (const std::string& says : Says(entry))
        text += Paragraph(says);
    return text + "\n" + Paragraph("Cause: " + entry.fCause) + "\n" + Paragraph("What to do: " + entry.fRemedy);
}

std::vector<std::string> Codes(const Groups& groups) {
    std::vector<std::string> codes;
    for (const ExplanationGroup& group : groups)
        for (const Explanation& entry : group.fvExplanations)
            codes.push_back(entry.fCode);
    return codes;
}

std::string List(const Groups& groups) {
    std::size_t width = 0;
    for (const std::string& code : Codes(groups))
        width = std::max(width, code.size() + 2);
    std::string text;
    for (const ExplanationGroup& group : groups) {
        text += group.fTitle + "\n" + Paragraph(group.fAbout) + "\n";
        for (const Explanation& entry : group.fvExplanations) {
            std::string code = entry.fCode;
            for (const std::string& says : Says(entry)) {
                code.resize(width, ' ');
                text += code + says + "\n";
                code.clear();
            }
        }
        text += "\n";
    }
    return text + "hierfit explain CODE, or the message in quotes, tells the cause of one, and what to do.\n";
}

/// What Markdown would take for its own, but for what stands in backticks.
std::string Escaped(const std::string& text) {
    std::string escaped;
    bool code = false;
    for (const char c : text) {
        if (c == '`') code = !code;
        if (!code && std::string_view("^[]<_*").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string Section(const Explanation& entry) {
    const std::vector<std::string> says = Says(entry);
    std::string text = "\n### " + entry.fCode + "\n\n" + entry.fKind + ":";
    if (says.size() == 1) text += " " + Escaped(says.front()) + "\n";
    if (says.size() > 1) text += "\n\n";
    for (std::size_t i = 0; says.size() > 1 && i < says.size(); ++i)
        text += "- " + Escaped(says[i]) + "\n";
    return text + "\n**Cause.** " + Escaped(entry.fCause) + "\n\n**What to do.** " + Escaped(entry.fRemedy) + "\n";
}

std::string Page(const Groups& groups) {
    std::string text =
        "# Messages: what they mean and what to do\n\nWritten by `hierfit explain --markdown`. `hierfit explain CODE` "
        "prints one of them, and `hierfit explain 'the message'` the one that a message is; ^1 and so on stand for "
        "what "
        "differs from one message to the next.\n";
    for (const ExplanationGroup& group : groups) {
        text += "\n## " + group.fTitle + "\n\n" + Escaped(group.fAbout) + "\n";
        for (const Explanation& entry : group.fvExplanations)
            text += Section(entry);
    }
    return text;
}

}  // namespace

int Explain(const Options& options) {
    const host::Explanations& explanations = host::Explanations::Current();
    const std::string& message = options.fMessage;
    const Explanation* entry = explanations.Find(message);
    if (!entry) entry = explanations.FindMessage(message);
    if (options.fMarkdown) {
        WriteResults("", Page(explanations.Groups()));
    } else if (message.empty()) {
        WriteResults("", List(explanations.Groups()));
    } else if (entry) {
        WriteResults("", Whole(*entry));
    } else {
        throw Failure{kWrongUse, "there is no message " + message +
                                     command::SuggestionText(message, Codes(explanations.Groups()), false) +
                                     "; hierfit explain lists them all"};
    }
    return kFitted;
}

}  // namespace app
