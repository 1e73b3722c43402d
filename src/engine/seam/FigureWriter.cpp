#include "engine/seam/ModelBuilder.h"
#include "engine/seam/Namer.h"
#include "engine/seam/ResultWriter.h"

#include <algorithm>
#include <optional>
#include <string>

namespace engine {

namespace {

std::vector<std::vector<double>> Rows(const Eigen::MatrixXd& matrix) {
    std::vector<std::vector<double>> rows(matrix.rows());
    for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
        const Eigen::VectorXd row = matrix.row(i);
        rows[i].assign(row.begin(), row.end());
    }
    return rows;
}

class FigureMaker {
public:
    explicit FigureMaker(const FigureSource& source)
        : fFit(source.fFit),
          fSpec(source.fSpec),
          fVariables(source.fVariables),
          fRun(source.fRun),
          fGeneralized(source.fGeneralized),
          fHistoryInterval(std::max(1, source.fHistoryInterval)),
          fNamer(source.fVariables),
          fEffects(source.fSpec.FixedEffects()) {}

    run::Figures Make() {
        Outcome();
        Data();
        if (!fFit.HasEstimates()) return std::move(fFigures);
        Fit();
        Fixed();
        Tests();
        Covariance();
        if (fRun.fWishes.fRandomEffects) RandomEffects();
        if (fRun.fWishes.fHistory) History();
        Matrices();
        return std::move(fFigures);
    }

private:
    void Outcome() {
        fFigures.fCode = fFit.fStatus.IsOk() ? 0 : fFit.fStatus.fCode;
        fFigures.fConverged = fFit.fStatus.IsOk();
        fFigures.fIterations = fFit.fIterations;
        for (const FitStatus& warning : fFit.fWarnings)
            AddMessage(warning);
        if (fFit.fStatus.IsError()) AddMessage(fFit.fStatus);
    }

    void AddMessage(const FitStatus& status) {
        fFigures.fMessages.push_back({status.IsError() ? "error" : "warning", status.fCode, status.fDetail});
    }

    void Data() {
        fFigures.fRecordsUsed = fVariables.GetUnWeightedCount();
        fFigures.fRecordsExcluded = fVariables.GetDroppedCount();
        fFigures.fWeightUsed = fVariables.GetWeightedCount();
        fFigures.fSubjects = fFit.fNumCommonSubjects;
        fFigures.fMethod = fSpec.fRestricted ? "REML" : "ML";
        if (IsGeneralized(&fRun)) fFigures.fLikelihood = "pseudo";
    }

    void Fit() {
        fFigures.fMinus2LL = fFit.fMinus2LogLikelihood;
        fFigures.fAIC = fFit.fAic;
        fFigures.fAICC = fFit.fAicc;
        fFigures.fCAIC = fFit.fCaic;
        fFigures.fBIC = fFit.fBic;
        fFigures.fScaledGradient = fFit.fCertificate.fScaledGradient;
        fFigures.fNewtonDecrement = fFit.fCertificate.fNewtonDecrement;
        fFigures.fSmallestEigenvalue = fFit.fCertificate.fSmallestEigenvalue;
        for (int index : fFit.fCertificate.fAtBound) {
            const CovarianceParameter& parameter = fFit.fCovariance[index];
            fFigures.fAtBound.push_back(BlockName(parameter) + ": " + parameter.fName);
        }
    }

    void Fixed() {
        for (const FixedParameter& source : fFit.fFixed) {
            run::FixedRow row;
            row.fEffect = fNamer.Effect(fEffects[source.fEffect]);
            row.fTerm = fNamer.Term(fEffects[source.fEffect], source.fLevels);
            row.fTargetCategory = TargetText(source.fTarget);
            row.fEstimate = source.fEstimate;
            row.fRedundant = source.fRedundant;
            if (!source.fRedundant) {
                row.fStdError = source.fStdError;
                row.fDf = source.fDf;
                row.fT = source.fT;
                row.fP = source.fP;
                row.fLower = source.fLower;
                row.fUpper = source.fUpper;
            }
            fFigures.fFixed.push_back(std::move(row));
        }
        fFigures.fFixedCovariance = Rows(fFit.fFixedCovariance);
    }

    void Tests() {
        for (const FTestResult& test : fFit.fTests) {
            fFigures.fTests.push_back(
                {fNamer.Effect(fEffects[test.fEffect]), fSpec.fTypeI ? 1 : 3, test.fDf1, test.fDf2, test.fF, test.fP});
        }
    }

    static std::string BlockName(const CovarianceParameter& parameter) {
        return parameter.fBlock < 0 ? "residual" : std::to_string(parameter.fBlock + 1);
    }

    std::optional<std::string> TargetText(int code) const {
        if (code < 0 || code >= static_cast<int>(fRun.fTargetCategories.size())) return std::nullopt;
        return fRun.fTargetCategories[code];
    }

    const std::vector<std::string>& GroupTexts(int block) const {
        return block < 0 ? fRun.fHidden.fvResidualGroupTexts : fRun.fHidden.fvRandomGroupTexts[block];
    }

    void Covariance() {
        for (const CovarianceParameter& source : fFit.fCovariance) {
            run::CovarianceRow row;
            row.fBlock = BlockName(source);
            const std::vector<int>& subjects =
                source.fBlock < 0 ? fSpec.fResidual.fSubjects : fSpec.fRandom[source.fBlock].fSubjects;
            if (!subjects.empty()) row.fSubject = fNamer.Variables(subjects);
            row.fTargetCategory = TargetText(source.fTarget);
            if (source.fGroup >= 0) row.fGroup = GroupTexts(source.fBlock)[source.fGroup];
            row.fStructure = CovarianceWord(source.fType);
            row.fParameter = source.fName;
            row.fEstimate = source.fEstimate;
            row.fStdError = source.fStdError;
            row.fZ = source.fZ;
            row.fP = source.fP;
            row.fLower = source.fLower;
            row.fUpper = source.fUpper;
            row.fRedundant = source.fRedundant;
            fFigures.fCovariance.push_back(std::move(row));
        }
    }

    std::string ColumnTerm(int block, int column) const {
        const RandomColumn& source = fFit.fRandomColumns[block][column];
        return fNamer.Term(fSpec.fRandom[block].fEffects[source.fEffect], source.fLevels);
    }

    /// A nominal target's predictors have the blocks again, each for its own category.
    int AllBlocks() const {
        return fGeneralized ? fGeneralized->RandomBlocks() : static_cast<int>(fSpec.fRandom.size());
    }
    int OwnBlock(int block) const { return block % static_cast<int>(fSpec.fRandom.size()); }
    std::optional<std::string> TargetOfBlock(int block) const {
        return fGeneralized ? TargetText(fGeneralized->TargetOfBlock(block)) : std::nullopt;
    }

    void RandomEffects() {
        for (int b = 0; b < AllBlocks(); ++b) {
            const int block = OwnBlock(b);
            const std::optional<std::string> target = TargetOfBlock(b);
            for (const SubjectPrediction& subject : fFit.Predictions(b)) {
                const std::string name = fNamer.Categories(fSpec.fRandom[block].fSubjects, subject.fSubject);
                for (Eigen::Index c = 0; c < subject.fEstimate.size(); ++c) {
                    fFigures.fRandomEffects.push_back({std::to_string(block + 1), name, target,
                                                       ColumnTerm(block, static_cast<int>(c)), subject.fEstimate[c],
                                                       subject.fStdError[c]});
                }
            }
        }
    }

    void History() {
        const int first = IsGeneralized(&fRun) ? 1 : 0;
        const int last = first + static_cast<int>(fFit.fHistory.size()) - 1;
        for (int number = first; number <= last; ++number) {
            if (number % fHistoryInterval != 0 && number != last) continue;
            const IterationRecord& source = fFit.fHistory[static_cast<std::size_t>(number - first)];
            run::IterationRow row;
            row.fIteration = number;
            row.fMethod = IsGeneralized(&fRun) ? "Outer" : number == 0 ? "Start" : source.fFisher ? "Fisher" : "Newton";
            row.fObjective = source.fObjective;
            row.fChange = source.fMaxChange;
            row.fHalvings = source.fHalvings;
            row.fDamping = source.fDamping;
            row.fTheta.assign(source.fTheta.begin(), source.fTheta.end());
            fFigures.fHistory.push_back(std::move(row));
        }
    }

    void Matrices() {
        if (fRun.fWishes.fGMatrix) GMatrices();
        if (fRun.fWishes.fRMatrix) RMatrix();
        if (fRun.fWishes.fLMatrix) LMatrices();
    }

    void GMatrices() {
        for (int b = 0; b < AllBlocks(); ++b) {
            const int block = OwnBlock(b);
            std::vector<std::string> names;
            for (int c = 0; c < fFit.fNumColumns[block]; ++c)
                names.push_back(ColumnTerm(block, c));
            const int groups = fSpec.fRandom[block].fGroup < 0 ? 0 : static_cast<int>(GroupTexts(block).size());
            for (int group = groups ? 0 : -1; group < groups; ++group) {
                std::string title = "G Matrix: block " + std::to_string(block + 1);
                if (group >= 0) title += ", " + GroupTexts(block)[group];
                if (const auto target = TargetOfBlock(b)) title += ", " + *target;
                fFigures.fMatrices.push_back({title, names, names, Rows(fFit.RandomCovariance(b, group))});
            }
        }
    }

    void RMatrix() {
        const Eigen::MatrixXd matrix = fFit.ResidualCovariance();
        std::vector<std::string> names;
        for (Eigen::Index i = 0; i < matrix.rows(); ++i)
            names.push_back(std::to_string(i + 1));
        fFigures.fMatrices.push_back({"R Matrix: first subject", names, names, Rows(matrix)});
    }

    void LMatrices() {
        std::vector<std::string> columns;
        for (const run::FixedRow& row : fFigures.fFixed)
            columns.push_back(row.fTerm);
        for (const FTestResult& test : fFit.fTests) {
            std::vector<std::string> names;
            for (Eigen::Index i = 0; i < test.fL.rows(); ++i)
                names.push_back("L" + std::to_string(i + 1));
            fFigures.fMatrices.push_back(
                {"L Matrix: " + fNamer.Effect(fEffects[test.fEffect]), names, columns, Rows(test.fL)});
        }
    }

    const FitResult& fFit;
    const ModelSpec& fSpec;
    const MCVarList& fVariables;
    const run::RunValue& fRun;
    const WorkingModel* fGeneralized;
    const int fHistoryInterval;
    Namer fNamer;
    std::vector<ModelEffect> fEffects;
    run::Figures fFigures;
};

}  // namespace

run::Figures MakeFigures(const FigureSource& source) {
    return FigureMaker(source).Make();
}

}  // namespace engine
