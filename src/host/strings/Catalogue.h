#pragma once

#include <map>
#include <memory>
#include <string>

namespace host {

/// The display texts of a language, by the texts and ids that the system uses as keys.
///
/// A catalogue file is JSON: "texts" maps keys to texts for all procedures, "procedures" holds such a map per procedure
/// name, which goes first, and "messages" maps message numbers to texts. A key without an entry stands for itself.
class Catalogue {
public:
    /// The catalogue in force: English as it was compiled in, overlaid by share/strings/en.json where the share
    /// directory is found. Read once.
    static const Catalogue& Current();

    /// The built-in English, overlaid by the directory's en.json. A file that is absent or no catalogue adds nothing.
    static std::shared_ptr<const Catalogue> At(const std::string& directory);

    /// Null when the key has no entry.
    const std::string* Find(const std::string& procedure, const std::string& key) const;
    std::string Text(const std::string& key) const { return Text(std::string(), key); }
    std::string Text(const std::string& procedure, const std::string& key) const;
    std::string Message(long number) const;  ///< empty for a number without text

private:
    using Texts = std::map<std::string, std::string>;
    bool Overlay(const std::string& json);

    Texts fTexts;
    std::map<std::string, Texts> fProcedures;
    Texts fMessages;
};

/// The English catalogue's file as it was compiled in.
extern const char* const kBuiltInCatalogue;

}  // namespace host
