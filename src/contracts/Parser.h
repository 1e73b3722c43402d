#pragma once

#include <memory>
#include <string>
#include <vector>

/// The host's command parser, as far as the procedure calls it.

struct CmnMix_map;  ///< the slot record: 8-byte slots, read by offset
struct CmaMix_map;  ///< the text record: character fields, read by offset

/// Position of the record with the ordinal (1, 2, ...) in the chain. Both cell views show the same memory; positions
/// are one-based.
long long TMCGET(const long long* intCells, const double* doubleCells, const double* chainHead, const double* ordinal);

/// Text of a catalogue message into a buffer of 256 bytes, blank-padded and not terminated within its text.
void ERRTXN(long number, char* buffer);

/// Messages of the command parser.
class ParserMessage {
public:
    ParserMessage();
    void SetCommandName(const std::string& name);
    void SetProcedureTitle(const std::string& title);
    /// The text behind a key, its places ^1, ^2 filled with the arguments.
    std::string GetTranslatedText(const std::string& key) const;
    std::string GetTranslatedText(const std::string& key, const std::vector<std::string>& arguments) const;
    void GenericError(const std::string& key) const;
    void ParamNeedParamInSubCom(const std::string& needed, const std::string& given,
                                const std::string& subCommand) const;

private:
    std::string fCommandName;
    std::string fProcedureTitle;
};

/// One parameter of a subcommand as the parser holds it.
class ParamObj {
public:
    virtual ~ParamObj() = default;
    virtual bool isStringValueCase(const std::string& value) const = 0;  ///< compares as the parser does: case ignored
};

/// One subcommand as the parser holds it.
class SubComObj {
public:
    virtual ~SubComObj() = default;
    virtual const ParamObj* getParamObj(const std::string& name) const = 0;  ///< null if absent
};

/// A parsed command.
class CommandSpec {
public:
    virtual ~CommandSpec() = default;
    virtual const SubComObj* getSubComObj(const std::string& name) const = 0;  ///< null if absent
};

/// What the parser knows of a command before it reads one.
class CommandDescriptor {
public:
    virtual ~CommandDescriptor() = default;
    virtual std::string getCommandName() const = 0;
    virtual std::string getProcedureTitle() const = 0;
};
