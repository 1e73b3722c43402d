#include "app/CommandSource.h"

#include "app/CallBack.h"
#include "app/ExitCode.h"
#include "app/MeansOptions.h"
#include "app/Variables.h"
#include "command/CommandParser.h"
#include "command/Words.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace app {

namespace {

constexpr std::size_t kLargestCommand = std::size_t{16} << 20;

std::string ReadWhole(const std::string& file) {
    const bool standard = file == "-";
    if (!standard && std::filesystem::is_directory(file))
        throw Failure{kFileError, file + ": is a directory, not a command file"};
    std::FILE* stream = standard ? stdin : std::fopen(file.c_str(), "rb");
    if (!stream) throw Failure{kFileError, file + ": the command file can't be read: " + std::strerror(errno)};
    std::string text;
    char buffer[65536];
    std::size_t got = 0;
    while (text.size() <= kLargestCommand && (got = std::fread(buffer, 1, sizeof buffer, stream)) > 0)
        text.append(buffer, got);
    const bool failed = std::ferror(stream) != 0;
    if (!standard) std::fclose(stream);
    if (failed) throw Failure{kFileError, file + ": the command file can't be read to its end"};
    if (text.size() > kLargestCommand) throw Failure{kFileError, file + ": a command file has at most 16 MiB"};
    return text;
}

std::string Trimmed(std::string text) {
    text.erase(0, text.find_first_not_of(" \t"));
    text.erase(text.find_last_not_of(" \t") + 1);
    return text;
}

/// The pieces between separators, trimmed, empty ones left out.
std::vector<std::string> Pieces(const std::string& text, const char* separators) {
    std::vector<std::string> pieces;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        std::string piece = Trimmed(text.substr(begin, end - begin));
        if (!piece.empty()) pieces.push_back(std::move(piece));
        begin = end + 1;
    }
    return pieces;
}

std::vector<command::Item> NameItems(const std::string& text, const char* separators, const char* flag) {
    std::vector<command::Item> items;
    for (std::string& name : Pieces(text, separators))
        items.push_back(command::Item::Name(std::move(name), {0, 0, flag}));
    if (items.empty()) throw Failure{kWrongUse, std::string(flag) + ": expected a variable's name"};
    return items;
}

void ApplyOptions(const Options& options, command::CommandTree& tree) {
    for (const CommandOption& option : CommandOptions()) {
        const auto given = options.fCommandTexts.find(option.fFlag);
        if (given != options.fCommandTexts.end()) ApplyOption(tree, option, given->second);
    }
}

}  // namespace

CommandSource::CommandSource(const Options& options) {
    command::CommandError error;
    if (options.fTask == Task::kFit) {
        fFormula = command::Formula::Parse(options.fFormula, error);
        if (!fFormula) Refuse(error);
    } else {
        ReadFile(options.fCommandFile);
    }
    ApplyOptions(options, fTree);
    if (fFormula) {
        std::vector<command::Item> nominal;
        if (const command::Parameter* named = fTree.Find("DATA", "NOMINAL")) nominal = named->fvItems;
        for (const std::string& name : fFormula->NominalNames())
            nominal.push_back(command::Item::Name(name, {0, 0, "formula"}));
        if (!nominal.empty()) fTree.Set("DATA", "NOMINAL", std::move(nominal));
    }
    if (options.fVerbose) {
        command::Subcommand& print = fTree.Get("PRINT");
        const command::Parameter* list = print.Find("");
        std::vector<command::Item> words = list ? list->fvItems : std::vector<command::Item>();
        words.push_back(command::Item::Word("HISTORY"));
        print.Set("", std::move(words));
    }
}

void CommandSource::ReadFile(const std::string& file) {
    fFile = file == "-" ? "standard input" : file;
    command::CommandError error;
    std::optional<command::CommandTree> tree = command::ParseCommand(ReadWhole(file), error);
    if (!tree) Refuse(error);
    fTree = std::move(*tree);
}

void CommandSource::Refuse(const command::CommandError& error) const {
    const bool inFile = !fFile.empty() && error.fAt.fSource == nullptr;
    throw Failure{kWrongUse, (inFile ? fFile + ": " : "") + error.Message()};
}

command::Specification CommandSource::Resolve(const host::Table& table) {
    const command::VariableList variables = VariablesOf(table);
    command::CommandError error;
    if (fFormula) {
        if (!fFormula->Expand(variables, fTree, error)) Refuse(error);
        const command::Parameter* list = fTree.Find("PRINT", "");
        std::vector<command::Item> words = list ? list->fvItems : std::vector<command::Item>();
        words.insert(words.begin(), command::Item::Word("SOLUTION"));
        fTree.Get("PRINT").Set("", std::move(words));
    }
    const std::string refused = RefusedSyntax(fTree);
    if (!refused.empty()) throw Failure{kWrongUse, (fFile.empty() ? "" : fFile + ": ") + refused};
    std::optional<command::Specification> specification = command::Resolve(fTree, variables, error);
    if (!specification) Refuse(error);
    return std::move(*specification);
}

void ApplyOption(command::CommandTree& tree, const CommandOption& option, const std::string& text) {
    const command::Position at{0, 0, option.fFlag};
    auto set = [&](const char* parameter, std::vector<command::Item> items) {
        tree.Set(option.fSubcommand, parameter, std::move(items), at);
    };
    command::CommandError error;
    if (std::string_view(option.fSubcommand) == "EMMEANS") {
        if (!ApplyMeansOption(tree, option, text, error)) throw Failure{kWrongUse, error.Message()};
        return;
    }
    switch (option.fForm) {
        case OptionForm::kText: {
            const bool end = command::EqualWords(text, "first") || command::EqualWords(text, "last");
            const bool word = end && std::string_view(option.fParameter) == "REFERENCE";
            return set(option.fParameter,
                       {word ? command::Item::Word(command::Upper(text), at) : command::Item::Text(text, at)});
        }
        case OptionForm::kNames:
            return set(option.fParameter, NameItems(text, ",", option.fFlag));
        case OptionForm::kMeasures: {
            const std::size_t bar = text.find('|');
            if (bar == std::string::npos)
                throw Failure{kWrongUse,
                              std::string(option.fFlag) + ": expected measures and subjects, as in 'time | subject'"};
            set("SUBJECTS", NameItems(text.substr(bar + 1), ",:*", option.fFlag));
            return set(option.fParameter, NameItems(text.substr(0, bar), ",:*", option.fFlag));
        }
        case OptionForm::kFamily:
        case OptionForm::kWord:
        case OptionForm::kItems:
            break;
    }
    std::string shown = text;
    if (option.fForm == OptionForm::kFamily && command::EqualWords(text, "negbin")) shown = "NEGATIVE_BINOMIAL";
    if (option.fForm == OptionForm::kWord || option.fForm == OptionForm::kFamily)
        for (char& c : shown)
            if (c == '-') c = '_';
    if (!command::SetFromOption(tree, option.fSubcommand, option.fParameter, shown, option.fFlag, error))
        throw Failure{kWrongUse, error.Message()};
}

command::DataWishes WishesOf(const Options& options) {
    command::CommandTree tree;
    ApplyOptions(options, tree);
    return command::ReadDataWishes(tree);
}

host::DataOptions DataOptionsOf(const command::DataWishes& wishes) {
    host::DataOptions options;
    options.fSchemaFile = wishes.fSchema;
    options.fDecimalComma = wishes.fDecimalComma;
    options.fMissing = wishes.fvMissing;
    options.fNominal = wishes.fvNominal;
    options.fOrdinal = wishes.fvOrdinal;
    options.fWeight = wishes.fWeight;
    options.fSplitBy = wishes.fvSplitBy;
    options.fFilter = wishes.fFilter;
    return options;
}

}  // namespace app
