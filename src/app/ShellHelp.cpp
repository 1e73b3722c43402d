#include "app/ShellHelp.h"

#include "app/CommandOptions.h"
#include "command/Keywords.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace app {

namespace {

using Words = std::vector<std::string>;

std::string Joined(const Words& words, const char* between = " ") {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

/// An option as the shells see it.
struct ShellOption {
    Words fNames;  ///< "-o", "--output"; none for an argument by its place
    std::string fHelp;
    std::string fGroup;
    bool fTakesValue = false;
    bool fTakesFile = false;
    Words fChoices;
};

/// "KENWARD_ROGER" as it is typed on the command line.
std::string AsTyped(std::string word) {
    for (char& c : word)
        c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return word;
}

/// What the command language knows of the parameter that an option sets.
const command::ParameterWord* ParameterOf(const std::string& flag) {
    for (const CommandOption& option : CommandOptions()) {
        if (flag != option.fFlag) continue;
        const command::SubcommandWord* subcommand = command::FindSubcommandWord(option.fSubcommand);
        return subcommand ? command::FindParameterWord(*subcommand, option.fParameter) : nullptr;
    }
    return nullptr;
}

/// The words of a type such as "TEXT:{html,json,text}".
Words WordsInBraces(const std::string& type) {
    Words words;
    const std::size_t open = type.find('{'), close = type.find('}');
    if (open == std::string::npos || close == std::string::npos) return words;
    for (std::size_t begin = open + 1; begin < close;) {
        const std::size_t end = std::min(type.find(',', begin), close);
        words.push_back(type.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

ShellOption Describe(const CLI::Option& option) {
    static const std::set<std::string> kFiles{"--data",      "--data-schema", "--output", "--charts-out", "--save",
                                              "--model-out", "commandfile",   "datafile", "modelfile"};
    ShellOption shown;
    for (const std::string& name : option.get_snames())
        shown.fNames.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        shown.fNames.push_back("--" + name);
    shown.fHelp = option.get_description();
    shown.fGroup = option.get_group();
    shown.fTakesValue = option.get_items_expected_max() > 0;
    const std::string name = option.get_lnames().empty() ? option.get_name(true) : "--" + option.get_lnames().front();
    shown.fTakesFile = kFiles.count(name) > 0;
    if (const command::ParameterWord* parameter = ParameterOf(name)) {
        if (parameter->fShape == command::Shape::kWord)
            for (const std::string& word : parameter->fWords)
                shown.fChoices.push_back(AsTyped(word));
    } else {
        shown.fChoices = WordsInBraces(option.get_type_name());
    }
    return shown;
}

/// The options of a task, in the order of their help; without = for its arguments by place.
std::vector<ShellOption> OptionsOf(const CLI::App& task) {
    std::vector<ShellOption> options;
    for (const CLI::Option* option : task.get_options())
        options.push_back(Describe(*option));
    return options;
}

std::vector<const CLI::App*> TasksOf(const CLI::App& program) {
    return program.get_subcommands([](const CLI::App*) { return true; });
}

/// A help text inside [...] and '...' of a zsh argument.
std::string ZshText(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\'') {
            escaped += "'\\''";
            continue;
        }
        if (c == '[' || c == ']' || c == ':' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string ZshValue(const ShellOption& option) {
    if (option.fTakesFile) return ":file:_files";
    if (!option.fChoices.empty()) return ":value:(" + Joined(option.fChoices) + ")";
    return option.fTakesValue ? ":value: " : "";
}

/// A text of the manual page: what roff would take for its own is escaped.
std::string Roff(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\')
            escaped += "\\e";
        else if (c == '-')
            escaped += "\\-";
        else if (c == '\'' || c == '.')
            escaped += std::string("\\&") + c;
        else
            escaped += c;
    }
    return escaped;
}

std::string ManualOption(const ShellOption& option) {
    std::string heading;
    for (const std::string& name : option.fNames)
        heading += (heading.empty() ? "" : ", ") + ("\\fB" + Roff(name) + "\\fR");
    if (option.fTakesValue) heading += option.fTakesFile ? " \\fIFILE\\fR" : " \\fIVALUE\\fR";
    const std::string choices = option.fChoices.empty() ? "" : "; one of " + Joined(option.fChoices, ", ");
    return ".TP\n" + heading + "\n" + Roff(option.fHelp + choices) + "\n";
}

/// A task's options under the headings of its help, each heading once.
std::string ManualOptions(const CLI::App& task) {
    std::vector<std::string> order;
    std::map<std::string, std::string> texts;
    for (const ShellOption& option : OptionsOf(task)) {
        if (option.fNames.empty()) continue;
        if (!texts.count(option.fGroup)) order.push_back(option.fGroup);
        texts[option.fGroup] += ManualOption(option);
    }
    std::string text;
    for (const std::string& group : order)
        text += ".PP\n\\fI" + Roff(group) + "\\fR\n" + texts[group];
    return text;
}

}  // namespace

std::string BashCompletion(const CLI::App& program) {
    Words tasks;
    std::string names;
    std::map<std::string, std::string> values;  // each option means the same in all tasks
    for (const CLI::App* task : TasksOf(program)) {
        tasks.push_back(task->get_name());
        Words flags, places;
        for (const ShellOption& option : OptionsOf(*task)) {
            flags.insert(flags.end(), option.fNames.begin(), option.fNames.end());
            if (option.fNames.empty()) places.insert(places.end(), option.fChoices.begin(), option.fChoices.end());
            if (!option.fTakesValue || option.fNames.empty()) continue;
            values[Joined(option.fNames, "|")] =
                option.fTakesFile ? "compopt -o filenames; COMPREPLY=($(compgen -f -- \"$cur\"))"
                                  : "COMPREPLY=($(compgen -W '" + Joined(option.fChoices) + "' -- \"$cur\"))";
        }
        names += "        " + task->get_name() + ") flags='" + Joined(flags) + "' places='" + Joined(places) + "' ;;\n";
    }
    std::string text =
        "# Completion of hierfit for bash, written by: hierfit completion bash\n_hierfit() {\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} flags= places=\n"
        "    if ((COMP_CWORD == 1)); then\n        COMPREPLY=($(compgen -W '" +
        Joined(tasks) + " --help --version' -- \"$cur\"))\n        return\n    fi\n    case $prev in\n";
    for (const auto& [option, reply] : values)
        text.append("        ").append(option).append(") ").append(reply).append("; return ;;\n");
    text += "    esac\n    case ${COMP_WORDS[1]} in\n" + names +
            "    esac\n    if [[ $cur == -* ]]; then\n        COMPREPLY=($(compgen -W \"$flags\" -- \"$cur\"))\n"
            "    elif [[ -n $places ]]; then\n        COMPREPLY=($(compgen -W \"$places\" -- \"$cur\"))\n"
            "    else\n        compopt -o filenames\n        COMPREPLY=($(compgen -f -- \"$cur\"))\n    fi\n}\n"
            "complete -F _hierfit hierfit\n";
    return text;
}

std::string ZshCompletion(const CLI::App& program) {
    std::string tasks, bodies;
    for (const CLI::App* task : TasksOf(program)) {
        tasks += "        '" + task->get_name() + ":" + ZshText(task->get_description()) + "'\n";
        bodies += "        " + task->get_name() + ") _arguments";
        for (const ShellOption& option : OptionsOf(*task)) {
            if (option.fNames.empty())
                bodies += " \\\n            '1:" + ZshText(option.fHelp) + ZshValue(option) + "'";
            for (const std::string& name : option.fNames)
                bodies += " \\\n            '" + name + "[" + ZshText(option.fHelp) + "]" + ZshValue(option) + "'";
        }
        bodies += " ;;\n";
    }
    return "#compdef hierfit\n# Completion of hierfit for zsh, written by: hierfit completion zsh\n_hierfit() {\n"
           "    local -a tasks=(\n" +
           tasks +
           "    )\n    if ((CURRENT == 2)); then\n        _describe task tasks\n        return\n    fi\n"
           "    local task=$words[2]\n    shift words\n    ((CURRENT--))\n    case $task in\n" +
           bodies + "    esac\n}\n_hierfit \"$@\"\n";
}

std::string ManualPage(const CLI::App& program, const std::string& version) {
    std::string text = ".TH HIERFIT 1 \"\" \"hierfit " + version +
                       "\" \"User Commands\"\n.ad l\n.SH NAME\nhierfit \\- " + Roff(program.get_description()) +
                       "\n.SH SYNOPSIS\n";
    std::string tasks;
    for (const CLI::App* task : TasksOf(program)) {
        std::string places;
        for (const CLI::Option* option : task->get_options())
            if (option->get_lnames().empty() && option->get_snames().empty())
                places += " \\fI" + Roff(option->get_name(true)) + "\\fR";
        text += ".B hierfit " + task->get_name() + "\\fR" + places + " [\\fIoptions\\fR]\n.br\n";
        tasks += ".SH " + task->get_name() + "\n" + Roff(task->get_description()) + ".\n";
        for (const ShellOption& option : OptionsOf(*task))
            if (option.fNames.empty()) tasks += "Its argument: " + Roff(option.fHelp) + ".\n";
        tasks += ManualOptions(*task);
    }
    text +=
        ".SH DESCRIPTION\nFits linear and generalized linear mixed models to the rows of a CSV file and shows "
        "tables, a report page or JSON.\n" +
        tasks +
        ".SH EXIT STATUS\n.TP\n0\nfitted\n.TP\n1\nfinished, but a model could not be fitted or did not converge\n"
        ".TP\n2\nwrong use or a wrong command\n.TP\n3\ndata or file error\n.TP\n130\nstopped by the user\n"
        ".SH EXAMPLES\n.nf\nhierfit fit \\(aqreaction ~ days + (days | subject)\\(aq \\-\\-data sleepstudy.csv\n"
        ".fi\n";
    return text;
}

}  // namespace app
