#pragma once

#include <vector>

namespace app {

/// How the text of an option becomes items of the command.
enum class OptionForm {
    kNames,    ///< variables, separated by commas
    kItems,    ///< as in the command language
    kWord,     ///< a word of the language, in any case and with - for _
    kText,     ///< as it stands
    kFamily,   ///< a distribution, by its word or a common short name
    kMeasures  ///< "time | subject": measures and, behind the bar, subjects
};

/// An option that sets a parameter of the command: one table feeds the command line and the command.
struct CommandOption {
    const char* fFlag;
    const char* fSubcommand;
    const char* fParameter;
    OptionForm fForm;
    const char* fHelp;
};
const std::vector<CommandOption>& CommandOptions();

}  // namespace app
