#include "command/Keywords.h"
#include "command/ParsedBlock.h"

#include <algorithm>

namespace command {

namespace {

bool HasCategories(const run::Target& target) {
    return target.fDistribution == run::Distribution::kNominal || target.fDistribution == run::Distribution::kOrdinal;
}

class BlockWriter {
public:
    explicit BlockWriter(const Specification& specification) : fSpec(specification) {}

    ParsedBlock Run() {
        WriteScalars();
        WriteVariables();
        WriteFixed();
        WriteRandom();
        WriteResidual();
        WritePrint();
        WriteSaved();
        WriteFiles();
        WriteMeans();
        WriteTests();
        fBlock.Append({0});  // a list of no cells may stand last; its position is then still inside
        return std::move(fBlock);
    }

private:
    using Cells = std::vector<std::int64_t>;

    static Cells Numbers(const std::vector<int>& variables) {
        Cells cells;
        for (const int variable : variables)
            cells.push_back(variable + 1);
        return cells;
    }

    /// A counted list; without entries its position stays 0.
    void WriteList(int countSlot, int positionSlot, const Cells& cells) {
        fBlock.SetSlot(countSlot, static_cast<std::int64_t>(cells.size()));
        fBlock.SetSlot(positionSlot, cells.empty() ? 0 : fBlock.Append(cells));
    }

    void WriteScalars() {
        fBlock.SetSlotDouble(slot::kConfidenceLevel, fSpec.fConfidenceLevel);
        fBlock.SetSlotDouble(slot::kHessianCriterion, fSpec.fHessian.fValue);
        fBlock.SetSlotDouble(slot::kLogLikelihoodCriterion, fSpec.fLogLikelihood.fValue);
        fBlock.SetSlotDouble(slot::kParameterCriterion, fSpec.fParameter.fValue);
        fBlock.SetSlotDouble(slot::kSingularity, fSpec.fSingularity);
        fBlock.SetSlot(slot::kHessianType, fSpec.fHessian.fType);
        fBlock.SetSlot(slot::kLogLikelihoodType, fSpec.fLogLikelihood.fType);
        fBlock.SetSlot(slot::kParameterType, fSpec.fParameter.fType);
        fBlock.SetSlot(slot::kDFMethod, fSpec.fDFMethod);
        fBlock.SetSlot(slot::kCriteriaFormat, fSpec.fCriteriaFormat);
        fBlock.SetSlot(slot::kEstimateFormat, fSpec.fEstimateFormat);
        fBlock.SetSlot(slot::kFisherSteps, fSpec.fFisherSteps);
        fBlock.SetSlot(slot::kThetaEstimation, fSpec.fMethod);
        fBlock.SetSlot(slot::kMaxIterations, fSpec.fMaxIterations);
        fBlock.SetSlot(slot::kMaxStepHalvings, fSpec.fMaxStepHalvings);
        fBlock.SetSlot(slot::kAnalysisType, fSpec.fAnalysisType);
        fBlock.SetSlot(slot::kIntercept, fSpec.fIntercept);
        fBlock.SetSlot(slot::kUserMissing, fSpec.fUserMissing);
    }

    void WriteVariables() {
        fBlock.SetSlot(slot::kTarget, fSpec.fTarget + 1);
        WriteList(slot::kFactorCount, slot::kFactorList, Numbers(fSpec.fvFactors));
        WriteList(slot::kCovariateCount, slot::kCovariateList, Numbers(fSpec.fvCovariates));
        fBlock.SetSlot(slot::kRegressionWeight, fSpec.fRegressionWeight + 1);
    }

    /// The row of an effect: a cell for each factor, then for each covariate.
    void AppendRow(const Term& term, Cells& rows) const {
        for (const int variable : fSpec.fvFactors) {
            std::int64_t level = 0;
            for (const Term::Factor& factor : term.fvFactors)
                if (factor.fVariable == variable) level = factor.fLevel;
            rows.push_back(level);
        }
        for (const int variable : fSpec.fvCovariates) {
            std::int64_t times = 0;
            for (const Term::Power& power : term.fvCovariates)
                if (power.fVariable == variable) times = term.fCovariatesNested ? -power.fTimes : power.fTimes;
            rows.push_back(times);
        }
    }

    /// A model with an intercept alone still has a row of no cells, so the count goes by effects.
    void WriteRows(int countSlot, int positionSlot, const std::vector<Term>& terms) {
        Cells rows;
        for (const Term& term : terms)
            AppendRow(term, rows);
        fBlock.SetSlot(countSlot, static_cast<std::int64_t>(terms.size()));
        fBlock.SetSlot(positionSlot, terms.empty() ? 0 : fBlock.Append(rows));
    }

    void WriteFixed() {
        std::vector<Term> terms(fSpec.fIntercept ? 1 : 0);
        terms.insert(terms.end(), fSpec.fvFixed.begin(), fSpec.fvFixed.end());
        WriteRows(slot::kFixedRowCount, slot::kFixedRows, terms);
    }

    void WriteRandom() {
        std::vector<Term> terms;
        Cells rowCounts, solutions, structures, subjectCounts, subjectPositions;
        std::vector<int> allSubjects;
        for (const RandomBlock& block : fSpec.fvRandom) {
            const auto rows = block.fvEffects.size();
            terms.insert(terms.end(), block.fvEffects.begin(), block.fvEffects.end());
            rowCounts.push_back(static_cast<std::int64_t>(rows));
            solutions.push_back(block.fSolution ? 1 : 0);
            structures.insert(structures.end(), rows, block.fStructure);
            subjectCounts.insert(subjectCounts.end(), rows, static_cast<std::int64_t>(block.fvSubjects.size()));
            const std::int64_t list = block.fvSubjects.empty() ? 0 : fBlock.Append(Numbers(block.fvSubjects));
            subjectPositions.insert(subjectPositions.end(), rows, list);
            for (const int subject : block.fvSubjects)
                if (std::find(allSubjects.begin(), allSubjects.end(), subject) == allSubjects.end())
                    allSubjects.push_back(subject);
        }
        WriteRows(slot::kRandomRowCount, slot::kRandomRows, terms);
        WriteList(slot::kRandomBlockCount, slot::kBlockRowCounts, rowCounts);
        if (!solutions.empty()) fBlock.SetSlot(slot::kBlockSolutions, fBlock.Append(solutions));
        if (!structures.empty()) {
            fBlock.SetSlot(slot::kRowStructures, fBlock.Append(structures));
            fBlock.SetSlot(slot::kRowSubjectCounts, fBlock.Append(subjectCounts));
            fBlock.SetSlot(slot::kRowSubjectPositions, fBlock.Append(subjectPositions));
        }
        WriteList(slot::kRandomSubjectCount, slot::kRandomSubjectList, Numbers(allSubjects));
    }

    void WriteResidual() {
        const ResidualBlock& block = fSpec.fResidual;
        fBlock.SetSlot(slot::kRepeatedStructure, block.fStructure);
        WriteList(slot::kRepeatedSubjectCount, slot::kRepeatedSubjectList, Numbers(block.fvSubjects));
        WriteList(slot::kRepeatedCount, slot::kRepeatedList, Numbers(block.fvMeasures));
        WriteList(slot::kSpatialCount, slot::kSpatialList, Numbers(block.fvCoordinates));
        WriteList(slot::kKroneckerCount, slot::kKroneckerList, Numbers(block.fvKronecker));
        if (!IsKroneckerCode(block.fStructure)) return;
        Cells first, second;
        for (std::size_t i = 0; i < block.fvMeasures.size(); ++i)
            if (std::find(block.fvKronecker.begin(), block.fvKronecker.end(), block.fvMeasures[i]) ==
                block.fvKronecker.end())
                first.push_back(static_cast<std::int64_t>(i) + 1);
        for (const int variable : block.fvKronecker)
            second.push_back(std::find(block.fvMeasures.begin(), block.fvMeasures.end(), variable) -
                             block.fvMeasures.begin() + 1);
        WriteList(slot::kPairingACount, slot::kPairingA, first);
        fBlock.SetSlot(slot::kPairingB, fBlock.Append(second));
    }

    /// The tables of estimates and their covariances have no place for target categories.
    void WritePrint() {
        const PrintOptions& print = fSpec.fPrint;
        const bool tables = !HasCategories(fSpec.fTargetOptions);
        fBlock.SetSlot(slot::kHistoryInterval, print.fHistoryInterval);
        fBlock.SetSlot(slot::kPrintCps, print.fCps);
        fBlock.SetSlot(slot::kPrintCorb, print.fCorb && tables);
        fBlock.SetSlot(slot::kPrintCovb, print.fCovb && tables);
        fBlock.SetSlot(slot::kPrintTestCov, print.fTestCov);
        fBlock.SetSlot(slot::kPrintVariableInfo, print.fVariableInfo);
        fBlock.SetSlot(slot::kPrintGMatrix, print.fGMatrix);
        fBlock.SetSlot(slot::kPrintHistory, print.fHistory);
        fBlock.SetSlot(slot::kPrintLMatrix, print.fLMatrix);
        fBlock.SetSlot(slot::kPrintRMatrix, print.fRMatrix);
        fBlock.SetSlot(slot::kPrintSolution, print.fSolution && tables);
    }

    void WriteSaved() {
        fBlock.SetSlot(slot::kSavedCount, static_cast<std::int64_t>(fSpec.fvSaved.size()));
        for (std::size_t i = 0; i < fSpec.fvSaved.size(); ++i) {
            const SavedVariable& saved = fSpec.fvSaved[i];
            const int shift = static_cast<int>(8 * i);
            fBlock.SetSlot(slot::kSavedTypes + shift, saved.fType);
            if (!saved.fName.empty())
                fBlock.SetSlot(slot::kSavedNames + shift,
                               fBlock.AppendText(saved.fName, std::size_t(8) * kSavedNameCells));
        }
    }

    void WriteFiles() {
        const OutputFiles& files = fSpec.fFiles;
        const bool any = !(files.fModel + files.fParameter + files.fStatXML + files.fStatJSON).empty();
        fBlock.SetSlot(slot::kOutputSelector, !any ? kNoFiles : files.fParameter.empty() ? kModelFile : kParameterFile);
        fBlock.SetText(text::kFirstFile, files.fParameter.empty() ? files.fModel : files.fParameter);
        fBlock.SetText(text::kStatJSON, files.fStatJSON);
        fBlock.SetText(text::kStatXML, files.fStatXML);
    }

    std::int64_t AppendMeans(const Means& means) {
        const std::int64_t factors = means.fvFactors.empty() ? 0 : fBlock.Append(Numbers(means.fvFactors));
        std::vector<double> entries(4 * fSpec.fvCovariates.size(), 0.0);
        for (const Means::Fixed& fixed : means.fvFixed) {
            double* entry = &entries[4 * static_cast<std::size_t>(fixed.fCovariate)];
            entry[0] = -1.0;
            entry[1] = fixed.fValue;
            entry[2] = static_cast<double>(fixed.fText.size());
            entry[3] = static_cast<double>(fBlock.AppendText(fixed.fText, 0));
        }
        const std::int64_t covariates = entries.empty() ? 0 : fBlock.AppendDoubles(entries);
        double seventh = means.fNumber, eighth = 0.0;
        if (means.fReference == Reference::kText) {
            seventh = static_cast<double>(means.fText.size());
            eighth = static_cast<double>(fBlock.AppendText(means.fText, static_cast<std::size_t>(means.fTextWidth)));
        }
        return fBlock.AppendDoubles({0.0, static_cast<double>(means.fvFactors.size()), static_cast<double>(factors),
                                     static_cast<double>(means.fCompare + 1), static_cast<double>(covariates),
                                     static_cast<double>(means.fAdjustment), static_cast<double>(means.fReference),
                                     seventh, eighth});
    }

    std::int64_t AppendTest(const CustomTest& test) {
        std::vector<double> values;
        for (const std::vector<double>& row : test.fvRows)
            values.insert(values.end(), row.begin(), row.end());
        auto counts = [&](const std::vector<int>& list) {
            if (test.fAllColumns) return static_cast<double>(list.front());
            return list.empty() ? 0.0 : static_cast<double>(fBlock.Append(Cells(list.begin(), list.end())));
        };
        const double fixed = counts(test.fvFixedCounts);
        const double random = counts(test.fvRandomCounts);
        const std::int64_t position = fBlock.AppendDoubles(values);
        const std::int64_t label = test.fLabel.empty() ? 0 : fBlock.AppendText(test.fLabel, 0);
        const std::int64_t k = test.fvK.empty() ? 0 : fBlock.AppendDoubles(test.fvK);
        return fBlock.AppendDoubles({test.fAllColumns ? 1.0 : 0.0, static_cast<double>(test.fvRows.size()), fixed,
                                     random, static_cast<double>(position), static_cast<double>(test.fLabel.size()),
                                     static_cast<double>(label), static_cast<double>(k)});
    }

    template <class Record, class Append>
    void WriteChain(int countSlot, int headSlot, const std::vector<Record>& records, Append append) {
        std::int64_t head = 0, link = 0;
        for (const Record& record : records) {
            link = fBlock.AppendLink((this->*append)(record), link);
            if (head == 0) head = link;
        }
        fBlock.SetSlot(countSlot, static_cast<std::int64_t>(records.size()));
        fBlock.SetSlot(headSlot, head);
    }

    void WriteMeans() { WriteChain(slot::kMeansCount, slot::kMeansChain, fSpec.fvMeans, &BlockWriter::AppendMeans); }
    void WriteTests() { WriteChain(slot::kTestCount, slot::kTestChain, fSpec.fvTests, &BlockWriter::AppendTest); }

    const Specification& fSpec;
    ParsedBlock fBlock;
};

}  // namespace

ParsedBlock WriteBlock(const Specification& specification) {
    return BlockWriter(specification).Run();
}

void FillRunValue(const Specification& specification, run::RunValue& value) {
    value.fTarget = specification.fTargetOptions;
    value.fResidualGroupVar = specification.fResidual.fGrouping;
    value.fvRandomGroupVars.clear();
    for (const RandomBlock& block : specification.fvRandom)
        value.fvRandomGroupVars.push_back(block.fGrouping);
    value.fvMeans.clear();
    for (const Means& means : specification.fvMeans)
        value.fvMeans.push_back(means.fChoice);
    value.fvTests = specification.fvTests;
    value.fParameterFile = !specification.fFiles.fParameter.empty();
    const OutputFiles& files = specification.fFiles;
    value.fWishes.fFiles =
        !(files.fModel.empty() && files.fParameter.empty() && files.fStatXML.empty() && files.fStatJSON.empty());
    value.fWishes.fHistory = specification.fPrint.fHistory;
    value.fWishes.fGMatrix = specification.fPrint.fGMatrix;
    value.fWishes.fRMatrix = specification.fPrint.fRMatrix;
    value.fWishes.fCovarianceTests = specification.fPrint.fTestCov;
    value.fWishes.fLMatrix = specification.fPrint.fLMatrix;
    value.fWishes.fCrossProducts = specification.fPrint.fCps;
}

}  // namespace command
