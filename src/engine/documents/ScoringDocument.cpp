#include "engine/documents/ScoringDocument.h"

#include "engine/documents/XmlGuard.h"
#include "engine/glmm/Family.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <new>
#include <pugixml.hpp>

namespace engine {

namespace {

constexpr int kVersion = 1;
constexpr int kDistributions = static_cast<int>(run::Distribution::kNominal) + 1;
constexpr int kLinks = static_cast<int>(run::Link::kCauchit) + 1;

std::vector<double> AsDoubles(const std::vector<int>& values) {
    return {values.begin(), values.end()};
}

class Writer {
public:
    Writer(XmlWriter& xml, const ScoringContent& content) : fXml(xml), fContent(content) {}

    void Write() {
        const ModelSpec& spec = fContent.fSpec;
        XmlElement scoring(fXml, "Scoring");
        scoring.With("version", kVersion).With("df", static_cast<int>(spec.fDf)).With("dependent", spec.fDependent);
        scoring.With("intercept", spec.fIntercept).With("offset", spec.fOffset);
        scoring.With("offsetValue", spec.fOffsetValue).With("generalized", fContent.fGeneralized);
        for (const auto& [name, value] : fContent.fSplit)
            XmlElement(fXml, "Split").With("name", name).With("value", value);
        for (const ScoringContent::Column& column : fContent.fColumns) {
            XmlElement element(fXml, "Column");
            element.With("name", column.fName).With("text", column.fText).With("categorical", column.fCategorical);
            for (const std::string& category : column.fCategories)
                XmlElement(fXml, "Value").With("value", category);
        }
        if (fContent.fGeneralized) Target(fContent.fTarget);
        for (const ModelEffect& effect : spec.fFixed)
            Effect("FixedEffect", effect);
        for (const RandomBlock& block : spec.fRandom) {
            const XmlElement element(fXml, "RandomBlock");
            Numbers("subjects", AsDoubles(block.fSubjects));
            for (const ModelEffect& effect : block.fEffects)
                Effect("Effect", effect);
        }
        FixedPart();
        RandomPart();
    }

private:
    void Target(const TargetSpec& target) {
        XmlElement element(fXml, "Target");
        element.With("distribution", NameOf(target.fDistribution)).With("link", NameOf(target.fLink));
        element.With("linkPower", target.fLinkPower).With("trials", target.fTrials);
        element.With("trialsValue", target.fTrialsValue).With("nonEvents", target.fNonEvents);
        if (target.fDispersion) element.With("dispersion", *target.fDispersion);
        element.With("categories", target.fCategories).With("reference", target.fReference);
        for (int c = 0; c < target.fCategories; ++c)
            XmlElement(fXml, "Value").With("value", target.fCategoryNames[c]).With("number", target.ValueOfCategory(c));
    }

    void Effect(const char* name, const ModelEffect& effect) {
        const XmlElement element(fXml, name);
        for (int factor : effect.fFactors)
            XmlElement(fXml, "Factor").With("column", factor);
        for (const EffectCovariate& covariate : effect.fCovariates)
            XmlElement(fXml, "Covariate").With("column", covariate.fVariable).With("power", covariate.fMultiplicity);
    }

    void Numbers(const char* name, const std::vector<double>& values) {
        XmlElement element(fXml, "Numbers");
        element.With("name", name).With("rows", static_cast<int>(values.size())).With("cols", 1);
        fXml.Array(values);
    }

    template <class M>
    void Matrix(const char* name, const M& matrix) {
        XmlElement element(fXml, "Numbers");
        element.With("name", name).With("rows", static_cast<int>(matrix.rows()));
        element.With("cols", static_cast<int>(matrix.cols()));
        fXml.Array(std::span<const double>(matrix.data(), static_cast<std::size_t>(matrix.size())));
    }

    void FixedPart() {
        const FixedState& fixed = fContent.fFixed;
        XmlElement element(fXml, "FixedPart");
        element.With("totalFrequency", fContent.fTotalFrequency);
        Numbers("kept", AsDoubles(fContent.fKept));
        Matrix("span", fContent.fSpan);
        Matrix("beta", fixed.fBeta);
        Matrix("half", fixed.fHalf);
        Matrix("thetaCovariance", fixed.fThetaCovariance);
        Matrix("reportedThetaCovariance", fContent.fThetaCovariance);
        if (fixed.fWeight.size() > 0) Matrix("weight", fixed.fWeight);
        if (fixed.fAdjusted.size() > 0) Matrix("adjusted", fixed.fAdjusted);
        for (const Eigen::MatrixXd& slope : fixed.fSlopes)
            Matrix("slope", slope);
    }

    void Errors(const RandomState::Errors& errors) {
        Matrix("own", errors.fOwn);
        Matrix("pull", errors.fPull);
    }

    void RandomPart() {
        const RandomState& random = fContent.fRandom;
        if (random.fUnits.empty()) return;
        const XmlElement element(fXml, "RandomPart");
        Matrix("half", random.fHalf);
        for (const RandomState::Slope& slope : random.fSlopes) {
            XmlElement parameter(fXml, "Slope");
            parameter.With("param", slope.fParam);
            Matrix("half", slope.fHalf);
        }
        for (std::size_t e = 0; e < random.fErrors.size(); ++e) {
            const XmlElement errors(fXml, "Errors");
            Errors(random.fErrors[e]);
            for (const RandomState::Slope& slope : random.fSlopes)
                Errors(slope.fErrors[e]);
        }
        for (const RandomState::Unit& unit : random.fUnits) {
            XmlElement group(fXml, "Unit");
            group.With("errors", unit.fErrors);
            for (const RandomState::Part& part : unit.fParts) {
                XmlElement subject(fXml, "Part");
                subject.With("block", part.fBlock).With("column", part.fColumn).With("width", part.fWidth);
                fXml.Array(AsDoubles(part.fSubject));
            }
            Matrix("estimate", unit.fEstimate);
        }
    }

    XmlWriter& fXml;
    const ScoringContent& fContent;
};

/// Reads with checks: the first thing that is wrong is kept, and what follows reads as empty.
class Reader {
public:
    explicit Reader(pugi::xml_node scoring) : fScoring(scoring) {}

    ScoringContent Read() {
        ReadColumns();
        ReadSpec();
        if (fContent.fGeneralized) ReadTarget();
        ReadFixedPart();
        ReadRandomPart();
        return std::move(fContent);
    }
    const std::string& Problem() const { return fProblem; }

private:
    void Fail(const std::string& text) {
        if (fProblem.empty()) fProblem = text;
    }

    double Number(pugi::xml_node node, const char* name) {
        const char* text = node.attribute(name).value();
        double value = 0.0;
        const char* end = text + std::strlen(text);
        const auto parsed = std::from_chars(text, end, value);
        if (parsed.ec != std::errc() || parsed.ptr != end || end == text) {
            Fail(std::string("has no number ") + name + " in its element " + node.name());
        }
        return value;
    }

    int Index(pugi::xml_node node, const char* name, int least, int most) {
        const double value = Number(node, name);
        if (!(value >= least && value <= most) || value != std::floor(value)) {
            Fail(std::string("has a wrong ") + name + " in its element " + node.name());
            return std::max(least, 0);
        }
        return static_cast<int>(value);
    }

    bool Flag(pugi::xml_node node, const char* name) { return std::strcmp(node.attribute(name).value(), "true") == 0; }

    std::vector<double> Array(pugi::xml_node parent) {
        std::vector<double> values;
        const char* at = parent.child("Array").text().get();
        const char* end = at + std::strlen(at);
        while (at != end) {
            if (*at == ' ' || *at == '\n' || *at == '\t' || *at == '\r') {
                ++at;
                continue;
            }
            double value = 0.0;
            const auto parsed = std::from_chars(at, end, value);
            if (std::strncmp(at, "__MISSING__", 11) == 0) {
                value = kMissing;
                at += 11;
            } else if (parsed.ec != std::errc()) {
                Fail("has a text where a number belongs");
                return {};
            } else {
                at = parsed.ptr;
            }
            values.push_back(value);
        }
        return values;
    }

    /// rows or cols -1: any number.
    Eigen::MatrixXd Matrix(pugi::xml_node numbers, Eigen::Index rows, Eigen::Index cols) {
        const std::vector<double> values = Array(numbers);
        const int foundRows = Index(numbers, "rows", 0, kMostColumns);
        const int foundCols = Index(numbers, "cols", 0, kMostColumns);
        const bool fits = (rows < 0 || rows == foundRows) && (cols < 0 || cols == foundCols) &&
                          static_cast<double>(foundRows) * foundCols == static_cast<double>(values.size());
        if (!fits) {
            Fail(std::string("has numbers of a wrong size: ") + numbers.attribute("name").value());
            return Eigen::MatrixXd::Zero(std::max<Eigen::Index>(rows, 0), std::max<Eigen::Index>(cols, 0));
        }
        return Eigen::Map<const Eigen::MatrixXd>(values.data(), foundRows, foundCols);
    }

    Eigen::MatrixXd Matrix(pugi::xml_node parent, const char* name, Eigen::Index rows, Eigen::Index cols) {
        return Matrix(parent.find_child_by_attribute("Numbers", "name", name), rows, cols);
    }

    std::vector<int> Indices(const std::vector<double>& values, int most) {
        std::vector<int> indices;
        for (const double value : values) {
            if (!(value >= 0 && value <= most) || value != std::floor(value)) {
                Fail("has an index that is out of range");
                return {};
            }
            indices.push_back(static_cast<int>(value));
        }
        return indices;
    }

    int LastColumn() const { return static_cast<int>(fContent.fColumns.size()) - 1; }

    void ReadColumns() {
        for (const pugi::xml_node node : fScoring.children("Split"))
            fContent.fSplit.emplace_back(node.attribute("name").value(), node.attribute("value").value());
        for (const pugi::xml_node node : fScoring.children("Column")) {
            ScoringContent::Column column{
                node.attribute("name").value(), Flag(node, "text"), {}, Flag(node, "categorical")};
            for (const pugi::xml_node value : node.children("Value"))
                column.fCategories.emplace_back(value.attribute("value").value());
            fContent.fSpec.fLevels.push_back(static_cast<int>(column.fCategories.size()));
            fContent.fColumns.push_back(std::move(column));
        }
        if (fContent.fColumns.empty()) Fail("has no columns in its scoring part");
    }

    ModelEffect ReadEffect(pugi::xml_node node) {
        ModelEffect effect;
        for (const pugi::xml_node factor : node.children("Factor")) {
            effect.fFactors.push_back(Index(factor, "column", 0, LastColumn()));
            if (!fProblem.empty()) return {};
            const ScoringContent::Column& column = fContent.fColumns[effect.fFactors.back()];
            if (!column.fCategorical || column.fCategories.empty()) Fail("has a factor without categories");
        }
        for (const pugi::xml_node covariate : node.children("Covariate")) {
            effect.fCovariates.push_back(
                {Index(covariate, "column", 0, LastColumn()), Index(covariate, "power", 1, kMostPower)});
        }
        return effect;
    }

    void ReadSpec() {
        ModelSpec& spec = fContent.fSpec;
        Index(fScoring, "version", kVersion, kVersion);
        const int df = Index(fScoring, "df", 0, static_cast<int>(DfMethod::kKenwardRoger));
        if (df == 2) Fail("has a wrong df in its element Scoring");
        spec.fDf = static_cast<DfMethod>(df);
        spec.fDependent = Index(fScoring, "dependent", 0, LastColumn());
        spec.fIntercept = Flag(fScoring, "intercept");
        spec.fOffset = Index(fScoring, "offset", -1, LastColumn());
        spec.fOffsetValue = Number(fScoring, "offsetValue");
        fContent.fGeneralized = Flag(fScoring, "generalized");
        for (const pugi::xml_node node : fScoring.children("FixedEffect"))
            spec.fFixed.push_back(ReadEffect(node));
        for (const pugi::xml_node node : fScoring.children("RandomBlock")) {
            RandomBlock block;
            block.fSubjects = Indices(Array(node.find_child_by_attribute("Numbers", "name", "subjects")), LastColumn());
            for (const int subject : block.fSubjects)
                if (!fContent.fColumns[subject].fCategorical) Fail("has a subject without categories");
            for (const pugi::xml_node effect : node.children("Effect"))
                block.fEffects.push_back(ReadEffect(effect));
            spec.fRandom.push_back(std::move(block));
        }
        CheckColumns(spec.FixedEffects());
        for (const RandomBlock& block : spec.fRandom)
            CheckColumns(block.fEffects);
    }

    /// Effects whose levels multiply to more columns than any model has would not fit the memory.
    void CheckColumns(const std::vector<ModelEffect>& effects) {
        double columns = 0.0;
        for (const ModelEffect& effect : effects) {
            double cells = 1.0;
            for (int factor : effect.fFactors)
                cells *= fContent.fSpec.fLevels[factor];
            columns += cells;
        }
        if (columns > kMostColumns) Fail("has more columns than any model");
    }

    template <class Enum>
    Enum Word(pugi::xml_node node, const char* name, int count) {
        for (int i = 0; i < count; ++i) {
            if (NameOf(static_cast<Enum>(i)) == node.attribute(name).value()) return static_cast<Enum>(i);
        }
        Fail(std::string("has an unknown ").append(name));
        return {};
    }

    void ReadTarget() {
        const pugi::xml_node node = fScoring.child("Target");
        TargetSpec& target = fContent.fTarget;
        target.fDistribution = Word<run::Distribution>(node, "distribution", kDistributions);
        target.fLink = Word<run::Link>(node, "link", kLinks);
        target.fLinkPower = Number(node, "linkPower");
        target.fTrials = Index(node, "trials", -1, LastColumn());
        target.fTrialsValue = Number(node, "trialsValue");
        target.fNonEvents = Index(node, "nonEvents", -1, LastColumn());
        if (node.attribute("dispersion")) target.fDispersion = Number(node, "dispersion");
        for (const pugi::xml_node value : node.children("Value")) {
            target.fCategoryNames.emplace_back(value.attribute("value").value());
            target.fCategoryValues.push_back(Number(value, "number"));
        }
        target.fCategories = static_cast<int>(target.fCategoryNames.size());
        target.fReference = Index(node, "reference", -1, target.fCategories - 1);
        const bool several =
            target.fDistribution == run::Distribution::kOrdinal || target.fDistribution == run::Distribution::kNominal;
        if (several && target.fCategories < 2) Fail("has a target without categories");
        if (target.fCategories > 0 && !several && target.fCategories != 2) Fail("has a target of wrong categories");
        if (!IsAdmissible(target.fDistribution, target.fLink)) Fail("has a link that its distribution doesn't take");
        if (target.fLink == run::Link::kPower && target.fLinkPower == 0.0) Fail("has a power link of power 0");
    }

    void ReadFixedPart() {
        const pugi::xml_node node = fScoring.child("FixedPart");
        fContent.fTotalFrequency = Number(node, "totalFrequency");
        fContent.fSpan = Matrix(node, "span", -1, -1);
        const Eigen::Index p = fContent.fSpan.rows();
        fContent.fKept = Indices(Array(node.find_child_by_attribute("Numbers", "name", "kept")),
                                 static_cast<int>(fContent.fSpan.cols()) - 1);
        const bool ascending =
            std::is_sorted(fContent.fKept.begin(), fContent.fKept.end(), std::less_equal<>());  // none twice
        if (static_cast<Eigen::Index>(fContent.fKept.size()) != p || !ascending)
            Fail("has columns that don't go together");
        FixedState& fixed = fContent.fFixed;
        fixed.fBeta = Matrix(node, "beta", p, 1);
        fixed.fHalf = Matrix(node, "half", p, p);
        fixed.fThetaCovariance = Matrix(node, "thetaCovariance", -1, -1);
        const Eigen::Index m = fixed.fThetaCovariance.rows();
        fContent.fThetaCovariance = Matrix(node, "reportedThetaCovariance", m, m);
        for (const pugi::xml_node numbers : node.children("Numbers")) {
            if (std::strcmp(numbers.attribute("name").value(), "slope") == 0)
                fixed.fSlopes.push_back(Matrix(numbers, p, p));
        }
        if (m != fixed.fThetaCovariance.cols() || static_cast<Eigen::Index>(fixed.fSlopes.size()) != m)
            Fail("has covariance parameters that don't go together");
        if (fContent.fSpec.fDf != DfMethod::kKenwardRoger) return;
        fixed.fWeight = Matrix(node, "weight", m, m);
        fixed.fAdjusted = Matrix(node, "adjusted", p, p);
    }

    RandomState::Errors ReadErrors(pugi::xml_node& at, Eigen::Index p) {
        RandomState::Errors errors;
        errors.fOwn = Matrix(at, -1, -1);
        at = at.next_sibling("Numbers");
        errors.fPull = Matrix(at, errors.fOwn.rows(), p);
        at = at.next_sibling("Numbers");
        if (errors.fOwn.rows() != errors.fOwn.cols()) Fail("has errors of a wrong size");
        return errors;
    }

    void ReadRandomPart() {
        const pugi::xml_node node = fScoring.child("RandomPart");
        RandomState& random = fContent.fRandom;
        const Eigen::Index p = fContent.fSpan.rows();
        if (!node || !fProblem.empty()) return;
        random.fHalf = Matrix(node, "half", p, p);
        const int params = static_cast<int>(fContent.fThetaCovariance.rows());
        for (const pugi::xml_node slope : node.children("Slope"))
            random.fSlopes.push_back({Index(slope, "param", 0, params - 1), Matrix(slope, "half", p, p), {}});
        for (const pugi::xml_node errors : node.children("Errors")) {
            pugi::xml_node at = errors.child("Numbers");
            random.fErrors.push_back(ReadErrors(at, p));
            const Eigen::Index q = random.fErrors.back().fOwn.rows();
            for (RandomState::Slope& slope : random.fSlopes) {
                slope.fErrors.push_back(ReadErrors(at, p));
                if (slope.fErrors.back().fOwn.rows() != q) Fail("has errors of a wrong size");
            }
        }
        for (const pugi::xml_node unit : node.children("Unit"))
            ReadUnit(unit);
    }

    void ReadUnit(pugi::xml_node node) {
        RandomState& random = fContent.fRandom;
        RandomState::Unit unit;
        unit.fErrors = Index(node, "errors", -1, static_cast<int>(random.fErrors.size()) - 1);
        unit.fEstimate = Matrix(node, "estimate", -1, 1);
        const int q = static_cast<int>(unit.fEstimate.size());
        if (!fProblem.empty()) return;
        if (unit.fErrors >= 0 && random.fErrors[unit.fErrors].fOwn.rows() != q) Fail("has errors of a wrong size");
        for (const pugi::xml_node part : node.children("Part")) {
            RandomState::Part subject;
            subject.fBlock = Index(part, "block", 0, kMostColumns);
            subject.fColumn = Index(part, "column", 0, q);
            subject.fWidth = Index(part, "width", 0, q - subject.fColumn);
            subject.fSubject = Indices(Array(part), kMostCode);
            unit.fParts.push_back(std::move(subject));
        }
        random.fUnits.push_back(std::move(unit));
    }

    static constexpr int kMostColumns = 1000000;
    static constexpr int kMostPower = 1000;
    static constexpr int kMostCode = 2147483646;

    pugi::xml_node fScoring;
    ScoringContent fContent;
    std::string fProblem;
};

/// The Scoring element of a model document, or what keeps it from being read.
pugi::xml_node FindScoring(const pugi::xml_document& document, std::string& problem) {
    const pugi::xml_node root = document.child("PMML");
    if (!root) {
        problem = "isn't a model file, which would have a PMML element";
        return {};
    }
    const pugi::xml_node model = root.child("GeneralRegressionModel");
    for (const pugi::xml_node extension : model.children("Extension")) {
        if (const pugi::xml_node scoring = extension.child("Scoring")) return scoring;
    }
    if (std::strcmp(model.attribute("isScorable").value(), "false") == 0) {
        problem =
            "holds estimates and their covariances alone, which can't score data; write a model file with "
            "--model-out or OUTFILE MODEL";
        return {};
    }
    problem = "has no scoring part: it wasn't written by this program as a model file";
    return {};
}

}  // namespace

void WriteScoring(XmlWriter& xml, const ScoringContent& content) {
    Writer(xml, content).Write();
}

ScoringContent ReadScoring(const std::string& document, std::string& problem) {
    problem = RefuseDocument(document);
    if (!problem.empty()) return {};
    pugi::xml_document parsed;
    const pugi::xml_parse_result result =
        parsed.load_buffer(document.data(), document.size(), pugi::parse_default, pugi::encoding_utf8);
    if (result.status == pugi::status_out_of_memory) throw std::bad_alloc();
    if (!result) {
        problem = std::string("isn't whole XML: ") + result.description() + " at byte " +
                  std::to_string(result.offset + 1) + "; write the model file again";
        return {};
    }
    const pugi::xml_node scoring = FindScoring(parsed, problem);
    if (!scoring) return {};
    Reader reader(scoring);
    ScoringContent content = reader.Read();
    problem = reader.Problem();
    return content;
}

}  // namespace engine
