#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What a message means and what to do about it.
struct Explanation {
    std::string fCode;                ///< a status (230024), a key (kGLMM_C8) or words of ours (output-file)
    std::string fKind;                ///< "error", "warning", "note"
    std::vector<std::string> fvSays;  ///< the texts that it explains, as users see them, their places as ^1; empty:
                                      ///< shown never
    std::string fCause;
    std::string fRemedy;
};

/// The messages of one part of the program.
struct ExplanationGroup {
    std::string fTitle;
    std::string fAbout;  ///< where they stand, and with which exit code
    std::vector<Explanation> fvExplanations;
};

/// All explanations, in the order of share/strings/explanations.json, which is compiled in.
class Explanations {
public:
    static const Explanations& Current();

    const std::vector<ExplanationGroup>& Groups() const { return fvGroups; }
    const Explanation* Find(std::string_view code) const;  ///< null when there is none
    /// The explanation of a text that holds a message, whatever stands before or behind it; null when none is known. Of
    /// several the one that shares the most letters.
    const Explanation* FindMessage(std::string_view text) const;

private:
    Explanations();
    std::vector<ExplanationGroup> fvGroups;
};

/// The file as it was compiled in.
extern const char* const kBuiltInExplanations;

}  // namespace host
