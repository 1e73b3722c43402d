// What the engine writes is what the reader reads: the record against the engine's figures, which take another way to
// the test than the documents do.
#include "runs/ModelRun.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using runs::ModelRun;
using testing::ElementsAre;
using testing::SizeIs;
using Texts = std::vector<std::string>;

/// A figure that doesn't exist is the missing value in the record.
double Kept(double figure) {
    return std::isnan(figure) ? SYSMIS : figure;
}

void ExpectFit(const HRFTOutputStats& record, const run::Figures& figures) {
    const ModelDiagnostics& diagnostics = *record.GetModelDiagnostics();
    EXPECT_EQ(diagnostics.fMinus2LogLikelihood, figures.fMinus2LL);
    EXPECT_EQ(diagnostics.fAICC, Kept(figures.fAICC));
    EXPECT_EQ(diagnostics.fBIC, Kept(figures.fBIC));
    EXPECT_EQ(diagnostics.fNumOfColsOfFixed, static_cast<int>(figures.fFixed.size()));
    EXPECT_EQ(diagnostics.fNumOfCommonSubjects, figures.fSubjects);
    int residual = 0, random = 0;
    for (const run::CovarianceRow& row : figures.fCovariance) {
        if (!row.fRedundant) ++(row.fBlock == "residual" ? residual : random);
    }
    EXPECT_EQ(diagnostics.fNumOfCovParamOfRepeated, residual);
    EXPECT_EQ(diagnostics.fNumOfCovParamOfRandom, random);
    EXPECT_EQ(diagnostics.fTargetDist.fTotalFreq, figures.fWeightUsed);
    double total = 0.0;
    for (const double frequency : diagnostics.fTargetDist.fvFrequency)
        total += frequency;
    EXPECT_EQ(total, figures.fWeightUsed);
    EXPECT_EQ(diagnostics.fTargetDist.fvObserved.size(), diagnostics.fTargetDist.fvFrequency.size());
}

void ExpectTests(const HRFTOutputStats& record, const run::Figures& figures) {
    ASSERT_NE(record.GetEffectTest(), nullptr);
    const auto& tests = record.GetEffectTest()->fvFixedEffectTests;
    EXPECT_EQ(tests.size(), record.GetBuildSettings()->fvFixedEffectList.size());
    std::size_t i = 0;
    for (const run::TestRow& row : figures.fTests) {
        if (row.fEffect == "(Intercept)") continue;
        ASSERT_LT(i, tests.size());
        const EffectTestStat& test = tests[i];
        EXPECT_EQ(test.fTestID, static_cast<int>(i));
        EXPECT_EQ(test.fTestType, row.fType);
        EXPECT_EQ(test.fFStatistic, Kept(row.fF));
        EXPECT_EQ(test.fDf1, Kept(row.fDf1));
        EXPECT_EQ(test.fDf2, Kept(row.fDf2));
        EXPECT_EQ(test.fSig, Kept(row.fP));
        ++i;
    }
    EXPECT_EQ(i, tests.size());
    // A single effect is all that the corrected model is about.
    if (tests.size() != 1) return;
    EXPECT_DOUBLE_EQ(record.GetEffectTest()->fCorrectedModel.fFStatistic, tests[0].fFStatistic);
}

void ExpectFixed(const HRFTOutputStats& record, const run::Figures& figures) {
    ASSERT_NE(record.GetParamCollect(), nullptr);
    std::size_t i = 0;
    for (const ParamEstimData& data : record.GetParamCollect()->fvFixedParamEstim) {
        for (const ParameterStatsData& stats : data.fvParameterStats) {
            ASSERT_LT(i, figures.fFixed.size());
            const run::FixedRow& row = figures.fFixed[i++];
            EXPECT_EQ(stats.fEstimate, row.fEstimate) << row.fTerm;
            EXPECT_EQ(stats.fStdError, Kept(row.fStdError)) << row.fTerm;
            EXPECT_EQ(stats.fDf, Kept(row.fDf)) << row.fTerm;
            EXPECT_EQ(stats.fTTest, Kept(row.fT)) << row.fTerm;
            EXPECT_EQ(stats.fSig, Kept(row.fP)) << row.fTerm;
            EXPECT_EQ(stats.fConfIntervalLower, Kept(row.fLower)) << row.fTerm;
            EXPECT_EQ(stats.fConfIntervalUpper, Kept(row.fUpper)) << row.fTerm;
            EXPECT_EQ(stats.fIsRedundant, row.fRedundant) << row.fTerm;
            // The field terms of a parameter spell its label, and the map of the fixed parameters knows it.
            std::string label;
            record.ParameterLabel(stats.fRegrParam, label);
            if (!stats.fParamLabel.starts_with("Threshold=")) {
                EXPECT_EQ(label, stats.fParamLabel);
            }
            if (record.GetBuildSettings()->fDistribution == kNominalTarget) {
                EXPECT_EQ(data.fTargetCategory.GetStringValue(), row.fTargetCategory.value_or("(none)"));
            }
            RegrParamInfo mapped;
            EXPECT_EQ(record.LookUpMapEntry(0, stats.fParamName, mapped), 0) << stats.fParamName;
        }
    }
    EXPECT_EQ(i, figures.fFixed.size());
}

void ExpectCovariance(const std::vector<ParamEstimData>& estimates, const std::string& block,
                      const run::Figures& figures, const HRFTOutputStats& record) {
    std::vector<const run::CovarianceRow*> rows;
    for (const run::CovarianceRow& row : figures.fCovariance) {
        if (row.fBlock == block) rows.push_back(&row);
    }
    std::size_t i = 0;
    for (const ParamEstimData& data : estimates) {
        for (const ParameterStatsData& stats : data.fvParameterStats) {
            ASSERT_LT(i, rows.size());
            const run::CovarianceRow& row = *rows[i++];
            EXPECT_EQ(stats.fParamName, row.fParameter);
            EXPECT_EQ(stats.fEstimate, row.fEstimate) << row.fParameter;
            EXPECT_EQ(stats.fStdError, Kept(row.fStdError)) << row.fParameter;
            EXPECT_EQ(stats.fZTest, Kept(row.fZ)) << row.fParameter;
            EXPECT_EQ(stats.fSig, Kept(row.fP)) << row.fParameter;
            EXPECT_EQ(stats.fConfIntervalLower, Kept(row.fLower)) << row.fParameter;
            EXPECT_EQ(stats.fConfIntervalUpper, Kept(row.fUpper)) << row.fParameter;
            EXPECT_EQ(stats.fIsRedundant, row.fRedundant) << row.fParameter;
            const auto& texts = data.fFiledData.fSubjectValues;
            if (row.fGroup) {
                ASSERT_THAT(texts, SizeIs(1));
                EXPECT_EQ(texts[0].GetStringValue(), *row.fGroup);
            }
            // The words that the viewer shows are of a row of its own.
            std::string key, text;
            Texts arguments;
            EXPECT_TRUE(record.PrintableMessage(stats.fPrintableList, block == "residual" ? -1 : std::stoi(block) - 1,
                                                key, arguments, text));
            EXPECT_FALSE(text.empty());
        }
    }
    EXPECT_EQ(i, rows.size()) << block;
}

void ExpectMeans(const HRFTOutputStats& record, const run::Figures& figures) {
    if (figures.fMeans.empty()) {
        EXPECT_EQ(record.GetEmmeansData(), nullptr);
        return;
    }
    ASSERT_NE(record.GetEmmeansData(), nullptr);
    for (const EmmeansData& data : *record.GetEmmeansData()) {
        const run::MeansRequest& request = figures.fMeans.at(data.fEmmeansIndex);
        const EMMeansSpec& spec = record.GetBuildSettings()->fvEMMeansSpecs.at(data.fEmmeansIndex);
        EXPECT_EQ(spec.fFactors.fvFieldNames, request.fFactors);
        const auto figure = [](const CoordinatesData& column, std::size_t row) {
            const std::string& token = column.fvValues.at(row);
            return token == "__MISSING__" ? SYSMIS : String2Double(token);
        };
        ASSERT_THAT(data.fEstimates.fMean.fvValues, SizeIs(request.fEstimates.size()));
        for (std::size_t r = 0; r < request.fEstimates.size(); ++r) {
            const run::MeanRow& row = request.fEstimates[r];
            EXPECT_EQ(figure(data.fEstimates.fMean, r), Kept(row.fMean));
            EXPECT_EQ(figure(data.fEstimates.fStdErr, r), Kept(row.fStdError));
            EXPECT_EQ(figure(data.fEstimates.fConfIntervalLower, r), Kept(row.fLower));
            EXPECT_EQ(figure(data.fEstimates.fConfIntervalUpper, r), Kept(row.fUpper));
            for (std::size_t f = 0; f < row.fLevels.size(); ++f) {
                EXPECT_EQ(data.fEstimates.fvCoordinates.at(f).fField, row.fLevels[f].first);
                EXPECT_EQ(data.fEstimates.fvCoordinates.at(f).fvValues.at(r), row.fLevels[f].second);
            }
        }
        ASSERT_THAT(data.fContrasts.fContrastEstimate.fvValues, SizeIs(request.fContrasts.size()));
        for (std::size_t r = 0; r < request.fContrasts.size(); ++r) {
            const run::ContrastRow& row = request.fContrasts[r];
            EXPECT_EQ(figure(data.fContrasts.fContrastEstimate, r), Kept(row.fEstimate));
            EXPECT_EQ(figure(data.fContrasts.fStdErr, r), Kept(row.fStdError));
            EXPECT_EQ(figure(data.fContrasts.fTTest, r), Kept(row.fT));
            EXPECT_EQ(figure(data.fContrasts.fDf, r), Kept(row.fDf));
            EXPECT_EQ(figure(data.fContrasts.fAdjustedSig, r), Kept(row.fPAdjusted));
            EXPECT_EQ(figure(data.fContrasts.fConfIntervalLower, r), Kept(row.fLower));
            EXPECT_EQ(figure(data.fContrasts.fConfIntervalUpper, r), Kept(row.fUpper));
        }
        ASSERT_THAT(data.fvOverallTests, SizeIs(request.fOverall.size()));
        for (std::size_t r = 0; r < request.fOverall.size(); ++r) {
            EXPECT_EQ(data.fvOverallTests[r].fFStatistic, Kept(request.fOverall[r].fF));
            // A test of nothing has no rows, which the document leaves out.
            EXPECT_EQ(data.fvOverallTests[r].fDf1,
                      request.fOverall[r].fDf1 == 0 ? SYSMIS : Kept(request.fOverall[r].fDf1));
            EXPECT_EQ(data.fvOverallTests[r].fDf2, Kept(request.fOverall[r].fDf2));
            EXPECT_EQ(data.fvOverallTests[r].fSig, Kept(request.fOverall[r].fP));
        }
        for (std::size_t c = 0; c < request.fCovariates.size(); ++c) {
            EXPECT_EQ(data.fvLabels.at(c).fPattern, request.fCovariates[c].first);
            EXPECT_EQ(data.fvLabels.at(c).fValue.GetObsValue()->fNumber, request.fCovariates[c].second);
        }
    }
}

/// The covariance matrices of the random effects against those that the figures show on request.
void ExpectMatrices(const HRFTOutputStats& record, const run::Figures& figures) {
    std::size_t next = 0;
    for (const RandEffCovars& covars : record.GetStructuredData()->fvRandEffCovars) {
        for (const MatrixData& matrix : covars.fMatrixValues) {
            ASSERT_LT(next, figures.fMatrices.size());
            const run::NamedMatrix& expected = figures.fMatrices[next++];
            ASSERT_THAT(covars.fvEffectLabels, SizeIs(expected.fRows.size()));
            ASSERT_THAT(matrix.fvRows, SizeIs(expected.fValues.size()));
            for (std::size_t i = 0; i < matrix.fvRows.size(); ++i)
                EXPECT_EQ(matrix.fvRows[i].fvValues, expected.fValues[i]);
        }
    }
    EXPECT_EQ(next, figures.fMatrices.size());
}

void ExpectRecord(const HRFTOutputStats& record, const run::Figures& figures) {
    ExpectFit(record, figures);
    ExpectTests(record, figures);
    ExpectFixed(record, figures);
    if (!record.GetParamCollect()) return;
    ExpectCovariance(record.GetParamCollect()->fvRepeatedParamEstim, "residual", figures, record);
    for (std::size_t b = 0; b < record.GetParamCollect()->fvRandomParamEstim.size(); ++b) {
        const RandomBlockEstim& block = record.GetParamCollect()->fvRandomParamEstim[b];
        EXPECT_EQ(block.fBlock, static_cast<int>(b));
        ExpectCovariance(block.fvParamEstim, std::to_string(b + 1), figures, record);
    }
    EXPECT_EQ(record.GetParamCollect()->fvRandomParamEstim.size(), record.GetBuildSettings()->fvRandomSpecs.size());
    if (record.GetStructuredData()) ExpectMatrices(record, figures);
    ExpectMeans(record, figures);
}

struct Model {
    const char* fName;
    const char* fCommand;
    int fDistribution, fLink;
};

const Model kModels[] = {
    {"Slopes",
     "HIERFIT /DATA FILE='sleepstudy.csv' /FIELDS TARGET=Reaction /FIXED EFFECTS=Days "
     "/RANDOM EFFECTS=INTERCEPT Days SUBJECTS=Subject COVARIANCE_TYPE=UN /PRINT GMATRIX",
     kNormalTarget, kIdentityLink},
    {"CrossedBlocks",
     "HIERFIT /DATA FILE='penicillin.csv' /FIELDS TARGET=diameter /RANDOM EFFECTS=INTERCEPT SUBJECTS=plate "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=sample /PRINT GMATRIX",
     kNormalTarget, kIdentityLink},
    {"GroupedBlocks",
     "HIERFIT /DATA FILE='orthodont.csv' /FIELDS TARGET=distance /FIXED EFFECTS=Sex age Sex*age "
     "/RANDOM EFFECTS=INTERCEPT age SUBJECTS=Subject COVARIANCE_TYPE=VC GROUPING=Sex "
     "/DATA_STRUCTURE SUBJECTS=Subject REPEATED_MEASURES=age COVARIANCE_TYPE=DIAG GROUPING=Sex "
     "/BUILD_OPTIONS DF_METHOD=SATTERTHWAITE CONFIDENCE_LEVEL=90 /PRINT GMATRIX",
     kNormalTarget, kIdentityLink},
    {"Spatial",
     "HIERFIT /DATA FILE='orthodont.csv' /FIELDS TARGET=distance /FIXED EFFECTS=age*age "
     "/DATA_STRUCTURE SUBJECTS=Subject SPCOORDS=age COVARIANCE_TYPE=SPEXP /BUILD_OPTIONS METHOD=ML",
     kNormalTarget, kIdentityLink},
    {"Kronecker",
     "HIERFIT /DATA FILE='obrienkaiser.csv' /FIELDS TARGET=score /FIXED EFFECTS=treatment phase treatment*phase "
     "/DATA_STRUCTURE SUBJECTS=id REPEATED_MEASURES=phase hour KRONECKER_MEASURES=hour COVARIANCE_TYPE=UN_CS",
     kNormalTarget, kIdentityLink},
    {"MeansAndRedundantColumns",
     "HIERFIT /DATA FILE='oats_redundant.csv' /FIELDS TARGET=yield COVARIATES=nitro nitro2 "
     "/FIXED EFFECTS=Variety dose Variety*dose nitro2 /RANDOM EFFECTS=INTERCEPT SUBJECTS=Block "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Block*Variety /BUILD_OPTIONS DF_METHOD=KENWARD_ROGER "
     "/EMMEANS TABLES=Variety*dose COMPARE=dose CONTRAST=PAIRWISE ADJUST=SEQSIDAK AT=nitro2(2) "
     "/EMMEANS TABLES=Variety COMPARE=Variety CONTRAST=DEVIATION ADJUST=SEQSIDAK /EMMEANS TABLES=dose ADJUST=SEQSIDAK "
     "/EMMEANS TABLES=dose COMPARE=dose CONTRAST=SIMPLE REFERENCE='n2' ADJUST=SEQSIDAK /PRINT GMATRIX",
     kNormalTarget, kIdentityLink},
    {"Binary",
     "HIERFIT /DATA FILE='bacteria.csv' NOMINAL=y /FIELDS TARGET=y /FIXED EFFECTS=trt week "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=ID /TARGET_OPTIONS DISTRIBUTION=BINOMIAL LINK=PROBIT "
     "/EMMEANS TABLES=trt COMPARE=trt CONTRAST=PAIRWISE ADJUST=SEQBONFERRONI /PRINT GMATRIX",
     kBinomialTarget, kProbitLink},
    {"Trials",
     "HIERFIT /DATA FILE='cbpp.csv' NOMINAL=period /FIELDS TARGET=incidence /FIXED EFFECTS=period "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=herd /TARGET_OPTIONS DISTRIBUTION=BINOMIAL TRIALS=size /PRINT GMATRIX",
     kBinomialTarget, kLogitLink},
    {"FixedTrials",
     "HIERFIT /DATA FILE='cbpp.csv' NOMINAL=period /FIELDS TARGET=incidence /FIXED EFFECTS=period "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=herd /TARGET_OPTIONS DISTRIBUTION=BINOMIAL TRIALS=40 LINK=CLOGLOG "
     "/PRINT GMATRIX",
     kBinomialTarget, kCloglogLink},
    {"Counts",
     "HIERFIT /DATA FILE='epil.csv' /FIELDS TARGET=y /FIXED EFFECTS=trt lbase "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=subject /TARGET_OPTIONS DISTRIBUTION=POISSON /PRINT GMATRIX",
     kPoissonTarget, kLogLink},
    {"OverdispersedCounts",
     "HIERFIT /DATA FILE='epil.csv' /FIELDS TARGET=y /FIXED EFFECTS=trt lbase "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=subject /TARGET_OPTIONS DISTRIBUTION=NEGATIVE_BINOMIAL /PRINT GMATRIX",
     kNegBinTarget, kLogLink},
    {"Gamma",
     "HIERFIT /DATA FILE='sleepstudy.csv' /FIELDS TARGET=Reaction /FIXED EFFECTS=Days "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Subject /TARGET_OPTIONS DISTRIBUTION=GAMMA LINK=POWER(-1) /PRINT GMATRIX",
     kGammaTarget, kPowerLink},
    {"InverseGaussian",
     "HIERFIT /DATA FILE='sleepstudy.csv' /FIELDS TARGET=Reaction /FIXED EFFECTS=Days "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Subject /TARGET_OPTIONS DISTRIBUTION=INVERSE_GAUSSIAN /PRINT GMATRIX",
     kInverseGaussTarget, kLogLink},
};

/// Targets whose categories have estimates of their own, or thresholds.
const Model kCategoricalModels[] = {
    {"Ordinal",
     "HIERFIT /DATA FILE='wine.csv' ORDINAL=rating /FIELDS TARGET=rating /FIXED EFFECTS=temp contact "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=judge /TARGET_OPTIONS DISTRIBUTION=ORDINAL LINK=PROBIT /PRINT GMATRIX",
     kOrdinalTarget, kProbitLink},
    {"Nominal",
     "HIERFIT /DATA FILE='verbagg6.csv' /FIELDS TARGET=resp /FIXED EFFECTS=mode Gender "
     "/RANDOM EFFECTS=INTERCEPT SUBJECTS=id /TARGET_OPTIONS DISTRIBUTION=NOMINAL /PRINT GMATRIX",
     kNominalTarget, kLogitLink},
};

class RoundTrip : public testing::TestWithParam<Model> {};

TEST_P(RoundTrip, RecordHoldsTheEnginesFigures) {
    ModelRun run(GetParam().fCommand);
    ASSERT_THAT(run.Value().fvResults, SizeIs(1));
    ASSERT_FALSE(run.Figures().fFixed.empty());
    const HRFTOutputStats& record = run.Record();
    EXPECT_EQ(record.GetBuildSettings()->fDistribution, GetParam().fDistribution);
    EXPECT_EQ(record.GetBuildSettings()->fLink, GetParam().fLink);
    ExpectRecord(record, run.Figures());
}

const auto kNameOf = [](const auto& model) { return std::string(model.param.fName); };
INSTANTIATE_TEST_SUITE_P(Models, RoundTrip, testing::ValuesIn(kModels), kNameOf);
INSTANTIATE_TEST_SUITE_P(CategoricalModels, RoundTrip, testing::ValuesIn(kCategoricalModels), kNameOf);

TEST(RoundTrip, SettingsAndFirstSubjectAreTheModels) {
    ModelRun run(
        "HIERFIT /DATA FILE='obrienkaiser.csv' /FIELDS TARGET=score /FIXED EFFECTS=treatment "
        "/DATA_STRUCTURE SUBJECTS=id REPEATED_MEASURES=phase hour KRONECKER_MEASURES=hour COVARIANCE_TYPE=UN_AR1 "
        "/BUILD_OPTIONS CONFIDENCE_LEVEL=90");
    const HRFTOutputStats& record = run.Record();
    const BuildSettings& settings = *record.GetBuildSettings();
    EXPECT_EQ(settings.fTargetName, "score");
    EXPECT_TRUE(settings.fKronecker);
    EXPECT_EQ(settings.fResidualCovType, kUN_AR1);
    EXPECT_EQ(settings.fRepeatedMeasure.fvFieldNames, Texts{"phase"});
    EXPECT_EQ(settings.fKroneckerMeasure.fvFieldNames, Texts{"hour"});
    EXPECT_EQ(settings.fResidualSubject.fvFieldNames, Texts{"id"});
    EXPECT_DOUBLE_EQ(settings.fConfidenceLevel, 0.9);
    // Six variances and covariances of three phases.
    EXPECT_EQ(record.GetParamCollect()->fvRepeatedParamEstim.at(0).fNumUNParam, 6);

    const StructuredData& data = *record.GetStructuredData();
    EXPECT_EQ(data.fTotalFreq, 15);
    EXPECT_EQ(data.fSubjectData.fvFieldNames, Texts{"id"});
    EXPECT_EQ(data.fSubjectData.fvCategoryCounts, std::vector<int>{16});
    EXPECT_EQ(data.fSubjectData.fSubjectValues.at(0).GetStringValue(), "s01");
    ASSERT_THAT(data.fvRepeatedMeasures, SizeIs(2));
    EXPECT_EQ(data.fvRepeatedMeasures[0].fNumLevels, 3);
    EXPECT_EQ(data.fvRepeatedMeasures[1].fNumLevels, 5);
    const auto texts = [](const std::vector<CFStatVariableValue>& values) {
        Texts shown;
        for (const auto& value : values)
            shown.push_back(value.GetStringValue());
        return shown;
    };
    EXPECT_THAT(texts(data.fvRepeatedMeasures[0].fvValues),
                ElementsAre("1pre", "1pre", "1pre", "1pre", "1pre", "2post", "2post", "2post", "2post", "2post"));
    EXPECT_THAT(texts(data.fvRepeatedMeasures[1].fvValues),
                ElementsAre("1", "2", "3", "4", "5", "1", "2", "3", "4", "5"));
    EXPECT_THAT(texts(data.fvTargetValues), ElementsAre("1", "2", "4", "2", "1", "3", "2", "5", "3", "2"));
}

TEST(RoundTrip, EverySplitHasItsDocuments) {
    ModelRun run(
        "HIERFIT /DATA FILE='orthodont.csv' SPLIT_BY=Sex /FIELDS TARGET=distance /FIXED EFFECTS=age "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Subject /PRINT GMATRIX");
    ASSERT_THAT(run.Value().fvResults, SizeIs(2));
    for (std::size_t split = 0; split < 2; ++split)
        ExpectRecord(run.Record(split), run.Figures(split));
    EXPECT_NE(run.Figures(0).fMinus2LL, run.Figures(1).fMinus2LL);
}

}  // namespace
