#include "procedure/DebugText.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <sstream>

namespace {

using Label = std::string;

/// Both libraries' debug streams, swapped for the life of the value.
class DisplayStreams {
public:
    explicit DisplayStreams(std::ostream& stream)
        : pSaveCompStream(MCDisplay::GetOutStream()), pSaveAdapterStream(ACACommonDisplay::GetOutStream()) {
        assert(pSaveCompStream != 0);
        assert(pSaveAdapterStream != 0);
        MCDisplay::SetOutStream(&stream);
        ACACommonDisplay::SetOutStream(&stream);
    }
    ~DisplayStreams() {
        MCDisplay::SetOutStream(pSaveCompStream);
        ACACommonDisplay::SetOutStream(pSaveAdapterStream);
    }
    DisplayStreams(const DisplayStreams&) = delete;
    DisplayStreams& operator=(const DisplayStreams&) = delete;

private:
    std::ostream* pSaveCompStream;
    std::ostream* pSaveAdapterStream;
};

void Text(const Label& text) {
    ACACommonDisplay::DisplayText(text.c_str());
}

void Int(const Label& label, long value) {
    ACACommonDisplay::DisplayI(label.c_str(), value);
}

void Bool(const Label& label, bool value) {
    ACACommonDisplay::DisplayB(label.c_str(), value);
}

void String(const Label& label, const std::string& value) {
    ACACommonDisplay::DisplayS(label.c_str(), value);
}

/// An index with its label, or what stands there when it isn't set.
void Index(const Label& label, const Label& undefined, int index) {
    if (index >= 0)
        Int(label, index);
    else
        Text(undefined);
}

void Indices(const Label& label, const Label& undefined, const std::vector<int>& indices) {
    if (indices.empty())
        Text(undefined);
    else
        ACACommonDisplay::DisplayIV(label.c_str(), indices);
}

/// What frames a list of objects in the text.
struct ListWords {
    Label fUndefined;
    Label fStart;
    Label fNumber;
    Label fItem;
    Label fEnd;
};

/// A list of objects that display themselves; behind displays what goes with the item of an index.
template <class T, class Behind>
void List(const ListWords& words, const std::vector<T>& items, Behind behind) {
    if (items.empty()) {
        Text(words.fUndefined);
        return;
    }
    Text(words.fStart);
    Int(words.fNumber, static_cast<long>(items.size()));
    for (std::size_t i = 0; i < items.size(); ++i) {
        Int(words.fItem, static_cast<long>(i));
        items[i].Display();
        behind(i);
    }
    Text(words.fEnd);
}

template <class T>
void List(const ListWords& words, const std::vector<T>& items) {
    List(words, items, [](std::size_t) {});
}

void OutputFile(const Label& defined, const Label& fileName, const Label& undefined, const std::string& name) {
    if (name.empty()) {
        Text(undefined);
        return;
    }
    Text(defined);
    String(fileName, name);
}

}  // namespace

void MIXValidSpecs::Display() const {
    std::ostringstream stream;
    Display(stream);
    SendDebugPieces(stream.str());
}

void MIXValidSpecs::Display(std::ostream& stream) const {
    const DisplayStreams streams(stream);
    Text("****************************************************");
    Text("* This text output is for debugging purposes only. *");
    Text("* This will not be part of the final release.      *");
    Text("****************************************************");
    Text("MIXValidSpecs display start");
    DisplayVariables();
    DisplayModel();
    DisplayEstimation();
    DisplayBlocks();
    DisplayEMMeans();
    if (fpVarValidSpecs) fpVarValidSpecs->Display();
    if (fpCompSettings) fpCompSettings->Display();
    DisplayPrintOptions();
    DisplayOutputs();
    Text("MIXValidSpecs display end");
}

void MIXValidSpecs::DisplayVariables() const {
    Index("Index of the dependent variable", "Dependent variable is not defined", fDependVar);
    Indices("List of variable indices of factor (categorical) variables:", "Factor variable list is not defined",
            fvFactorList);
    MCDisplay::DisplayCCategOrder("Factor category order", fFactorSortOrder);
    Indices("List of variable indices of covariate (continuous) variables:", "Covariate variable list is not defined",
            fvCovariateList);
}

void MIXValidSpecs::DisplayModel() const {
    List({"Model effects are not defined", "Display of model effects start", "Number of model effects",
          "Model effect index", "Display of model effects end"},
         fvModelEffectList);
    Bool("Use Intercept indicator", fInterceptInModel);
    MCDisplay::DisplayCOffsetType("Offset type", fOffsetType);
    Index("Offset QVTA variable index", "Offset variable is not defined", fOffsetIndex);
    MCDisplay::DisplayD("Offset value", fOffsetValue);
    Index("Index of QVTA Frequency Weight variable", "QVTA Frequency Weight variable is not defined", fQvtaWeightIndex);
    Index("Index of Scaleweight variable", "Scaleweight variable is not defined", fRegrWeightIndex);
    List({"Random effects are not defined", "Display of random effects start", "Number of random effects",
          "Random effect index", "Display of random effects end"},
         fvRandEffectList, [&](std::size_t i) {
             ACACommonDisplay::DisplayBV("Random effect covariate nested flags:", fvRandEffectNested[i]);
         });
}

void MIXValidSpecs::DisplayEstimation() const {
    MCDisplay::DisplayCEffectAnalysisType("Analysis type", fEffectAnalysisType);
    MCDisplay::DisplayCEffectAnalysisStat("Type of chi-square statistic", fEffectAnalysisStat);
    Int("Starting iteration for checking separation", fIterSep);
    MCDisplay::DisplayCConvType("Convergence type for Hconvergence", fHConvType);
    MCDisplay::DisplayCConvType("Convergence type for Lconvergence", fLConvType);
    Bool("Lconvergence type set by user?", fLConvTypeSet);
    MCDisplay::DisplayCConvType("Convergence type for Pconvergence", fPConvType);
    MCDisplay::DisplayDF("Convergence criterion for Hconvergence", fHConvCrit);
    MCDisplay::DisplayDF("Convergence criterion for Lconvergence", fLConvCrit);
    Bool("Lconvergence criterion set by user?", fLConvCritSet);
    MCDisplay::DisplayDF("Convergence criterion for Pconvergence", fPConvCrit);
    Int("Maximum number of iterations", fMaxIter);
    Int("Maximum number of steps in step-halving", fMaxStepHalving);
    MCDisplay::DisplayD("Confidence interval level as percent", fCILevelPct);
    MCDisplay::DisplayCCIType("Confidence interval type", fCIType);
    MCDisplay::DisplayDF("Confidence interval convergence criterion for Profile type", fCIConvProfile);
    MCDisplay::DisplayCCovbType("Estimator type of the parameter estimate covariance matrix", fCovbType);
    MCDisplay::DisplayCThetaEstType("Theta estimation type", fThetaEstType);
    MCDisplay::DisplayCHessianCompMethod("Parameter estimation method", fEstMethod);
    Int("Maximum number of Fisher steps before switch to Newton", fMaxFisherSteps);
    MCDisplay::DisplayDF("Tolerance value in tests for singularity", fTolerance);
    MCDisplay::DisplayCDegreesFreedomType("Degrees of Freedom Method", fDFMethod);
}

void MIXValidSpecs::DisplayBlocks() const {
    List({"Random specs are not defined", "Display of random specs start", "Number of random specs",
          "Random spec index", "Display of random specs end"},
         fvRandomList);
    Text("Display of repeated specs start");
    fRepeatedSpec.Display();
    fKronSpec.Display();
    Text("Display of repeated specs end");
    List({"Custom tests are not defined", "Display of custom tests start", "Number of custom tests",
          "Custom test index", "Display of custom tests end"},
         fvCustomTests);
}

void MIXValidSpecs::DisplayEMMeans() const {
    List({"Emmeans tests are not defined", "Display of emmeans tests start", "Number of emmeans tests",
          "Emmeans test index", "Display of emmeans tests end"},
         fvEMMeansList, [&](std::size_t i) { DisplayReference(i); });
}

void MIXValidSpecs::DisplayReference(std::size_t request) const {
    const std::string& text = fvContrastStrings[request];
    if (const OBS* value = fvContrastPairList[request].first)
        ACACommonDisplay::DisplayObs("Emmeans value in OBS", value, static_cast<int>(text.size()));
    else
        Text("Emmeans value in OBS is not defined");
    if (text.empty())
        Text("Emmeans value string is not defined");
    else
        String("Emmeans value string", text);
    Int("Emmeans reference category type", fvEmmRCTypeList[request]);
    Bool("Emmeans reference category is too long", request < fvbEmmRCLong.size() && fvbEmmRCLong[request]);
    if (fvvEmmFixCovStr[request].empty())
        Text("Emmeans fixed covariate strings are not defined");
    else
        ACACommonDisplay::DisplaySV("Emmeans fixed covariate strings:", fvvEmmFixCovStr[request]);
}

void MIXValidSpecs::DisplayPrintOptions() const {
    Bool("Include classification missing indicator", fClassMissInclude);
    Bool("Print Corb indicator", fPrintCORB);
    Bool("Print Covb indicator", fPrintCOVB);
    Bool("Print Cps indicator", fPrintCPS);
    Bool("Print Fit indicator", fPrintFIT);
    Bool("Print Gef indicator", fPrintGEF);
    Bool("Print History indicator", fPrintHISTORY);
    Int("Print History parameter", fPrintHistPar);
    Bool("Print Lagrange indicator", fPrintLAGRANGE);
    Bool("Print Lmatrix indicator", fPrintLMATRIX);
    Bool("Print Model info indicator", fPrintMODELINFO);
    Bool("Print Solution indicator", fPrintSOLUTION);
    Bool("Print Exponentiated Solution indicator", fPrintEXPONENTIATED);
    Bool("Print Summary indicator", fPrintSUMMARY);
    Bool("Print Variable info indicator", fPrintVARIABLEINFO);
    Bool("Print Working corr indicator", fPrintWORKINGCORR);
    Bool("Print Covariance Test indicator", fPrintTestCov);
    Bool("Print G Matrix indicator", fPrintGMatrix);
    Bool("Print R Matrix indicator", fPrintRMatrix);
    Bool("Print None indicator", fPrintNONE);
}

void MIXValidSpecs::DisplayOutputs() const {
    if (fvSaveVarTypes.empty()) Text("Saved variables not defined");
    for (std::size_t i = 0; i < fvSaveVarTypes.size(); ++i) {
        Int("Saved variable type", fvSaveVarTypes[i]);
        MCDisplay::DisplayCScoreType("Scored variable type", fvSaveScoreTypes[i]);
    }
    ACACommonDisplay::DisplaySV("Saved variable names:", fvSaveVarNames);
    ACACommonDisplay::DisplaySV("Saved variable labels:", fvSaveVarLabels);
    Int("Maximum number of new OBS to add", fMaxObsAdded);
    OutputFile("OUTFILE MODEL is defined", "OUTFILE MODEL file name", "OUTFILE MODEL is not defined",
               fOutFModelFileName);
    OutputFile("OUTFILE PARAMETER is defined", "OUTFILE PARAMETER file name", "OUTFILE PARAMETER is not defined",
               fOutFParameterFileName);
    OutputFile("OUTFILE STATXML is defined", "OUTFILE STATXML file name", "OUTFILE STATXML is not defined",
               fOutFStatXMLFileName);
    OutputFile("OUTFILE STATJSON is defined", "OUTFILE STATJSON file name", "OUTFILE STATJSON is not defined",
               fOutFStatJSONFileName);
    Bool("Use StatJSON indicator", fUseStatJSON);
    MCDisplay::DisplayCConvType("Convergence type for Type I and III", fConvTypeTypeIandIII);
    MCDisplay::DisplayDF("Convergence criterion value for Type I and III", fConvCritTypeIandIII);
}
