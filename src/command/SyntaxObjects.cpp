#include "command/SyntaxObjects.h"

#include "command/Words.h"

#include <map>

namespace command {

namespace {

class ParameterView : public ParamObj {
public:
    explicit ParameterView(const Parameter& parameter) : fParameter(parameter) {}
    bool isStringValueCase(const std::string& value) const override {
        return fParameter.fvItems.size() == 1 && EqualWords(fParameter.fvItems.front().fText, value);
    }

private:
    const Parameter& fParameter;
};

class SubcommandView : public SubComObj {
public:
    explicit SubcommandView(const Subcommand& subcommand) {
        for (const Parameter& parameter : subcommand.fvParameters)
            fvParameters.emplace(parameter.fName, parameter);
    }
    const ParamObj* getParamObj(const std::string& name) const override {
        const auto found = fvParameters.find(Upper(name));
        return found == fvParameters.end() ? nullptr : &found->second;
    }

private:
    std::map<std::string, ParameterView> fvParameters;
};

class CommandView : public CommandSpec {
public:
    explicit CommandView(const CommandTree& tree) {
        for (const Subcommand& subcommand : tree.fvSubcommands)
            fvSubcommands.emplace(subcommand.fName, subcommand);
    }
    const SubComObj* getSubComObj(const std::string& name) const override {
        const auto found = fvSubcommands.find(Upper(name));
        return found == fvSubcommands.end() ? nullptr : &found->second;
    }

private:
    std::map<std::string, SubcommandView> fvSubcommands;
};

class HierfitDescriptor : public CommandDescriptor {
public:
    std::string getCommandName() const override { return "HIERFIT"; }
    std::string getProcedureTitle() const override { return "Hierarchical Model Fit"; }
};

}  // namespace

std::unique_ptr<CommandSpec> MakeCommandSpec(const CommandTree& tree) {
    return std::make_unique<CommandView>(tree);
}

std::unique_ptr<CommandDescriptor> MakeCommandDescriptor() {
    return std::make_unique<HierfitDescriptor>();
}

}  // namespace command
