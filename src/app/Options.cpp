#include "app/Options.h"

#include "app/ExitCode.h"
#include "app/ResultWriter.h"
#include "app/ShellHelp.h"
#include "app/Terminal.h"
#include "app/Version.h"
#include "command/Keywords.h"
#include "command/Words.h"
#include "report/PageAssets.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace app {

namespace {

/// Under which heading the help lists an option that sets a parameter of this subcommand.
const char* HelpHeading(std::string_view subcommand) {
    static const std::map<std::string_view, const char*> headings{{"DATA", "Data"},
                                                                  {"FIELDS", "Data"},
                                                                  {"TARGET_OPTIONS", "Target"},
                                                                  {"DATA_STRUCTURE", "Repeated measures"},
                                                                  {"BUILD_OPTIONS", "Estimation"},
                                                                  {"EMMEANS", "Means and tests"},
                                                                  {"TEST", "Means and tests"},
                                                                  {"OUTFILE", "Files"},
                                                                  {"SAVE", "Files"}};
    const auto at = headings.find(subcommand);
    return at == headings.end() ? "Options" : at->second;
}

class CommandLine {
public:
    explicit CommandLine(Options& options) : fOptions(options) {
        fProgram.require_subcommand(1);
        fProgram.set_version_flag("--version", [] {
            const bool charts = *report::kChartScript != '\0';
            return VersionText() + (charts ? "charts on pages: yes" : "charts on pages: no");
        });
        fProgram.get_formatter()->column_width(38);

        CLI::App* fit = AddTask("fit", "Fit a model from a formula", Task::kFit);
        fit->add_option("formula", fOptions.fFormula, "the model: 'y ~ a*b + x + (1 + x | g)'")->required();
        AddCommandOptions(*fit, true);
        AddOutputOptions(*fit);

        CLI::App* run = AddTask("run", "Run a HIERFIT command", Task::kRun);
        run->add_option("commandfile", fOptions.fCommandFile, "file with the command; - reads the standard input")
            ->required();
        AddCommandOptions(*run, false);
        AddOutputOptions(*run);
        run->footer("\n" + command::KeywordHelp());

        CLI::App* check = AddTask("check", "Check a HIERFIT command without running it", Task::kCheck);
        check->add_option("commandfile", fOptions.fCommandFile, "file with the command; - reads the standard input")
            ->required();
        AddCommandOptions(*check, false);
        check->add_flag("--quiet", fOptions.fQuiet, "say nothing when the command is right");

        CLI::App* describe = AddTask("describe", "Show what a data file holds, as it is understood", Task::kDescribe);
        describe->add_option("datafile", fOptions.fDataFile, "data file, CSV or TSV with a header line")->required();
        for (const char* flag : {"--data-schema", "--nominal", "--ordinal", "--missing", "--decimal-comma"})
            AddCommandOption(*describe, FindOption(flag), false);

        CLI::App* predict = AddTask("predict", "Score new data by a model file", Task::kPredict);
        predict->add_option("modelfile", fOptions.fModelFile, "file that --model-out or OUTFILE MODEL has written")
            ->required();
        for (const char* flag : {"--data", "--data-schema", "--missing", "--decimal-comma"})
            AddCommandOption(*predict, FindOption(flag), true);
        predict->add_option("-o,--output", fOptions.fOutput, "write the data with the predictions to this file");
        predict->add_flag("--strict", fOptions.fStrict, "refuse data that lack or change what the model needs");
        AddThreads(*predict);
        predict->add_flag("--quiet", fOptions.fQuiet, "no remarks");

        CLI::App* explain = AddTask("explain", "Tell what a message means and what to do", Task::kExplain);
        explain->add_option("message", fOptions.fMessage,
                            "its code, or the message itself in quotes; without it all are listed");
        explain->add_flag("--markdown", fOptions.fMarkdown, "all of them, as a page");

        AddText("completion", "Print a completion script for a shell")
            ->add_option("shell", fShell, "the shell")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh"}));
        AddText("manual", "Print the manual page, as roff");
    }

    std::optional<int> Read(int argc, char** argv) {
        if (IsPastedMessage(argc, argv)) {
            fOptions.fTask = Task::kExplain;
            fOptions.fMessage = argv[2];
            return std::nullopt;
        }
        try {
            fProgram.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) return fProgram.exit(error);
            Complain(WhatIsWrong(error, argc, argv));
            return kWrongUse;
        }
        if (const std::optional<std::string> text = AskedText()) {
            WriteResults("", *text);
            return kFitted;
        }
        for (const CommandOption& option : CommandOptions())
            if (fTexts.count(option.fFlag) && fGiven[option.fFlag])
                fOptions.fCommandTexts[option.fFlag] = fTexts[option.fFlag];
        return std::nullopt;
    }

private:
    /// A message may begin with an option's name, which isn't meant for the program.
    static bool IsPastedMessage(int argc, char** argv) {
        return argc == 3 && std::string_view(argv[1]) == "explain" &&
               std::string_view(argv[2]).find(' ') != std::string_view::npos;
    }

    /// The error in words that name what was written, what is near to it, and where help is found.
    std::string WhatIsWrong(const CLI::ParseError& error, int argc, char** argv) const {
        const auto tasks = fProgram.get_subcommands(nullptr);
        const auto given = fProgram.get_subcommands();
        if (given.empty()) {
            std::vector<std::string> names;
            for (const CLI::App* task : tasks)
                names.push_back(task->get_name());
            const std::string word = argc > 1 ? argv[1] : "";
            return (word.empty() ? std::string("tell what to do") : "there is no task " + word) +
                   command::SuggestionText(word, names, true) + "; hierfit --help shows them all";
        }
        const CLI::App& task = *given.front();
        std::string text = error.what();
        if (dynamic_cast<const CLI::ArgumentMismatch*>(&error))
            text = text.substr(0, text.find(':')) + " needs a value";
        const std::vector<std::string> rest = task.remaining();
        const auto unknown = std::find_if(rest.begin(), rest.end(), [](const auto& word) { return word[0] == '-'; });
        if (unknown != rest.end())
            text = "there is no option " + *unknown + command::SuggestionText(*unknown, OptionNames(task), false);
        else if (!rest.empty())
            text = "the argument " + rest.front() + " stands alone; put a formula or a text with blanks in quotes";
        return text + "; hierfit " + task.get_name() + " --help shows all options";
    }

    static std::vector<std::string> OptionNames(const CLI::App& task) {
        std::vector<std::string> names;
        for (const CLI::Option* option : task.get_options())
            names.push_back(option->get_name());
        return names;
    }

    CLI::App* AddTask(const char* name, const char* help, Task task) {
        CLI::App* added = fProgram.add_subcommand(name, help);
        added->callback([this, task] { fOptions.fTask = task; });
        return added;
    }

    /// A task that prints what it says of the program itself, and runs nothing.
    CLI::App* AddText(const char* name, const char* help) { return fProgram.add_subcommand(name, help); }

    std::optional<std::string> AskedText() const {
        if (fProgram.got_subcommand("manual")) return ManualPage(fProgram, HIERFIT_VERSION);
        if (!fProgram.got_subcommand("completion")) return std::nullopt;
        return fShell == "bash" ? BashCompletion(fProgram) : ZshCompletion(fProgram);
    }

    static const CommandOption& FindOption(std::string_view flag) {
        const auto& options = CommandOptions();
        return *std::find_if(options.begin(), options.end(),
                             [&](const CommandOption& option) { return option.fFlag == flag; });
    }

    void AddCommandOption(CLI::App& task, const CommandOption& option, bool needsData) {
        bool& given = fGiven[option.fFlag];
        CLI::Option* added = task.add_option(option.fFlag, fTexts[option.fFlag], option.fHelp);
        added->group(HelpHeading(option.fSubcommand))->type_name("");
        added->each([&given](const std::string&) { given = true; });
        if (needsData && std::string_view(option.fFlag) == "--data") added->required();
    }

    void AddCommandOptions(CLI::App& task, bool needsData) {
        for (const CommandOption& option : CommandOptions())
            AddCommandOption(task, option, needsData);
    }

    void AddOutputOptions(CLI::App& task) {
        static const std::map<std::string, Format> formats{
            {"text", Format::kText}, {"json", Format::kJson}, {"html", Format::kHtml}};
        const auto choose = [this](const std::string& word) { fOptions.fFormat = formats.at(word); };
        task.add_option_function<std::string>("--format", choose, "of the results")->check(CLI::IsMember(&formats));
        task.add_option("-o,--output", fOptions.fOutput, "write the results to this file");
        task.add_option("--charts-out", fOptions.fChartsDirectory,
                        "write each chart as a Vega-Lite document into this directory");
        task.add_option("--show", fOptions.fShow, "which half of the output; the viewer's unless told, in JSON all")
            ->check(CLI::IsMember({"classic", "viewer", "all"}));
        AddThreads(task);
        task.add_flag("--quiet", fOptions.fQuiet, "no remarks and no progress");
        task.add_flag("--verbose", fOptions.fVerbose, "show the iterations");
        task.add_option("--debug", fOptions.fDebug, "internal texts: specs,varlist,component,stats,records")
            ->type_name("");
        task.add_flag("--show-command", fOptions.fShowCommand, "print the HIERFIT command instead of running it");
    }

    void AddThreads(CLI::App& task) {
        task.add_option("--threads", fOptions.fThreads, "number of threads; all cores unless given")
            ->check(CLI::Range(1, 1024));
    }

    Options& fOptions;
    CLI::App fProgram{"Linear and generalized linear mixed models", "hierfit"};
    std::string fShell;  ///< completion
    std::map<std::string, std::string> fTexts;
    std::map<std::string, bool> fGiven;
};

}  // namespace

std::optional<int> ReadCommandLine(int argc, char** argv, Options& options) {
    return CommandLine(options).Read(argc, argv);
}

}  // namespace app
