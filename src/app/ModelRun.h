#pragma once

#include "command/ParsedBlock.h"
#include "command/Specification.h"
#include "host/data/SavedDataWriter.h"
#include "host/data/Table.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace app {

/// Which of the output's halves a run writes.
enum class Halves { kClassic, kBoth };

/// A line for the user, and by which code more is told about it; empty: by none.
struct Saying {
    std::string fText;
    std::string fCode;
};

/// One run of the procedure on a table, from a resolved command to the output tree and the figures. It writes nothing
/// but the files that the command names.
class ModelRun {
public:
    ModelRun(std::shared_ptr<const host::Table> table, const command::Specification& specification);

    /// What to set before Drive: wishes, threads, stop, progress; and what is left after it.
    run::RunValue& Value() { return fRun; }
    const run::RunValue& Value() const { return fRun; }
    host::OutputDocument& Document() { return fDocument; }
    const host::OutputDocument& Document() const { return fDocument; }

    /// The run, once. The viewer's half is read from the documents, which are among the wishes then.
    void Drive(Halves halves);

    /// Called towards the end of Drive with the columns that the command saves, in the data's order of rows. Not called
    /// when nothing was fitted, the run was stopped, or there is a ScoringProblem.
    std::function<void(QVTA_DataSourceImpl&)> fTakeScores;

    /// Why scores that the command saves are lacking although a model was fitted; empty when they aren't.
    const std::string& ScoringProblem() const { return fScoringProblem; }

    /// 0 without split variables.
    std::size_t SplitCount() const { return fpTable->SplitIndices().empty() ? 0 : fpTable->Splits().size(); }

    bool Stopped() const { return fRun.fStop && fRun.fStop(); }
    bool AnythingFitted() const;
    bool AllFitted() const;

    /// One for each thing that kept a model from being fitted: the output's message and the sentence behind it.
    std::vector<Saying> Errors() const;
    /// Messages of splits, and of doubtful results, which are notes in the output.
    std::vector<Saying> Notes() const;

private:
    void Score(ProcedureDataSource& source);

    std::shared_ptr<const host::Table> fpTable;
    command::ParsedBlock fBlock;
    host::OutputDocument fDocument;
    run::RunValue fRun;
    std::string fScoringProblem;
};

}  // namespace app
