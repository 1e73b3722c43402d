#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What a message means and what to do about it.
struct Explanation {
    std::string fCode;  ///< a status (230024), a key (kGLMM_C8) or a word of ours (output-file)
    std::string fKind;  ///< "error", "warning", "note"; "family" for messages that have no text of their own
    std::string fSays;  ///< the message as users see it, its places as ^1; of a family its shape; empty: shown never
    std::string fCause;
    std::string fRemedy;
    std::vector<std::string> fBeginnings;  ///< how its messages begin
};

/// All explanations, in the order of share/strings/explanations.json, which is compiled in.
class Explanations {
public:
    static const Explanations& Current();

    const std::vector<Explanation>& All() const { return fAll; }
    const Explanation* Find(std::string_view code) const;  ///< null when there is none
    /// The code of a message by its text, empty when none is known.
    std::string CodeOf(std::string_view message) const;

private:
    Explanations();
    std::vector<Explanation> fAll;
};

/// The file as it was compiled in.
extern const char* const kBuiltInExplanations;

}  // namespace host
