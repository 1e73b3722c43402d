#include "app/Explain.h"

#include "app/ExitCode.h"
#include "app/ResultWriter.h"
#include "app/Terminal.h"
#include "command/Words.h"
#include "host/strings/Explanations.h"
#include "report/DisplayText.h"

#include <algorithm>

namespace app {

namespace {

using host::Explanation;

constexpr const char* kUnsaid = "Nothing is shown for it.";

std::string Says(const Explanation& entry) {
    return entry.fSays.empty() ? kUnsaid : entry.fSays;
}

std::string Paragraph(const std::string& text) {
    std::string lines;
    for (const std::string& line : report::Wrap(text, std::min(OutputWidth(), 100)))
        lines += line + "\n";
    return lines;
}

std::string Whole(const Explanation& entry) {
    return entry.fCode + " (" + entry.fKind + ")\n\n" + Paragraph(Says(entry)) + "\n" +
           Paragraph("Cause: " + entry.fCause) + "\n" + Paragraph("What to do: " + entry.fRemedy);
}

std::string List(const std::vector<Explanation>& entries) {
    std::size_t width = 0;
    for (const Explanation& entry : entries)
        width = std::max(width, entry.fCode.size());
    std::string text;
    for (const Explanation& entry : entries)
        text += entry.fCode + std::string(width + 2 - entry.fCode.size(), ' ') + Says(entry) + "\n";
    return text + "\nhierfit explain CODE tells the cause of one, and what to do.\n";
}

/// What Markdown would take for its own.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '^' || c == '[' || c == ']' || c == '<' || c == '_' || c == '*') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string Page(const std::vector<Explanation>& entries) {
    std::string text =
        "# Messages: what they mean and what to do\n\nWritten by `hierfit explain --markdown`; `hierfit explain CODE` "
        "prints one of them. Numbers are the statuses of a fit, which stand in the JSON results too; keys are notes "
        "under "
        "the viewer's tables; words are families of messages that tell file, line and remedy themselves.\n";
    for (const Explanation& entry : entries)
        text += "\n## " + entry.fCode + "\n\n" + entry.fKind + ": " + Escaped(Says(entry)) + "\n\n**Cause.** " +
                entry.fCause + "\n\n**What to do.** " + entry.fRemedy + "\n";
    return text;
}

}  // namespace

int Explain(const Options& options) {
    const host::Explanations& explanations = host::Explanations::Current();
    if (options.fMarkdown) {
        WriteResults("", Page(explanations.All()));
    } else if (options.fMessageCode.empty()) {
        WriteResults("", List(explanations.All()));
    } else if (const Explanation* entry = explanations.Find(options.fMessageCode)) {
        WriteResults("", Whole(*entry));
    } else {
        std::vector<std::string> codes;
        for (const Explanation& known : explanations.All())
            codes.push_back(known.fCode);
        throw Failure{kWrongUse, "there is no message " + options.fMessageCode +
                                     command::SuggestionText(options.fMessageCode, codes, false) +
                                     "; hierfit explain lists them all"};
    }
    return kFitted;
}

}  // namespace app
