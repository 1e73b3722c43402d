#include "contracts/HostOutput.h"
#include "host/data/DateText.h"
#include "host/output/FigureText.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

/// The contract's cell texts: what is shown of variables and values is settled when the text is made, words and
/// figures when it is read.

namespace {

constexpr int kShowName = 1;
constexpr int kShowLabel = 2;

host::DisplayOptions Options() {
    const auto* document = host::OutputDocument::Current();
    return document ? document->fDisplay : host::DisplayOptions();
}

/// Name or value, label, or both, by the option; without a label the name or value alone.
std::string Shown(const std::string& plain, const char* label, int option) {
    if (!label || option <= kShowName) return plain;
    return option == kShowLabel ? std::string(label) : plain + " " + label;
}

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

BpFormatSpec Settled(double value, const BpFormatSpec& format) {
    if (format.GetKind() != BpFormatSpec::kMean) return format;
    const auto* document = host::OutputDocument::Current();
    const auto variable = static_cast<int>(format.GetValue());
    if (document && document->Data() && variable >= 0 && variable < static_cast<int>(document->Data()->ColumnCount())) {
        const QVTA_Format print = document->Data()->GetVariable(variable).GetFormat();
        if (host::IsDateFormat(print.fType)) return BpFormatSpec(print);
    }
    return BpFormatSpec(BpFormatSpec::kSigDigit, value);
}

std::shared_ptr<output::TextNode> VariableText(const QVTA_Variable& variable, BpVariable::Show show) {
    const int option = show == BpVariable::kName    ? kShowName
                       : show == BpVariable::kLabel ? kShowLabel
                                                    : Options().fTableVariables;
    return output::MakeValue(Shown(variable.GetName(), variable.GetLabel(), option),
                             std::string("variable ") + variable.GetName(), nullptr);
}

std::shared_ptr<output::TextNode> ValueText(const QVTA_Variable& variable, OBS const* value,
                                            BpDataValue::Preference preference) {
    const int option = preference == BpDataValue::kValue   ? kShowName
                       : preference == BpDataValue::kLabel ? kShowLabel
                                                           : Options().fTableValues;
    const QVTA_ValueLabelMap labels(variable.GetValueLabels());
    const int type = variable.GetType();
    // A value that could not be loaded shows as a missing one.
    if (!value) return output::MakeValue(host::kMissingFigure, {}, nullptr);
    if (type != 0) {
        const std::string text(value->fText, static_cast<std::size_t>(type < 0 ? -type : type));
        const std::string plain = text.substr(0, text.find_last_not_of(' ') + 1);
        return output::MakeValue(Shown(plain, labels.GetLabel(value), option), plain, nullptr);
    }
    const BpFormatSpec format(variable.GetFormat());
    const double number = value->fNumber;
    auto figure = std::make_shared<output::Figure>(output::Figure{number, format});
    const std::string plain =
        host::IsMissingFigure(number) ? host::kMissingFigure : Trimmed(ToString(value, variable.GetFormat()));
    return output::MakeValue(Shown(plain, labels.GetLabel(number), option),
                             output::MakeNumber(number, format)->Identity(), figure);
}

output::CompositeNode& Composite(const std::shared_ptr<output::TextNode>& node) {
    return static_cast<output::CompositeNode&>(*node);
}

}  // namespace

BpCellText::BpCellText(std::shared_ptr<output::TextNode> node) : fpNode(std::move(node)) {}

BpCellText::~BpCellText() = default;

long BpCellText::Replicate() const {
    auto* document = host::OutputDocument::Current();
    return document ? document->Keep(fpNode) : -1;
}

BpString::BpString(const std::string& text, bool translate) : BpCellText(output::MakeString(text, translate)) {}

BpString::BpString(const std::string& text, bool translate, bool) : BpString(text, translate) {}

BpNumber::BpNumber(double value, const BpFormatSpec& format)
    : BpCellText(output::MakeNumber(value, Settled(value, format))) {}

BpVariable::BpVariable(const QVTA_Variable& variable, Show show) : BpCellText(VariableText(variable, show)) {}

BpDataValue::BpDataValue(const QVTA_Variable& variable, OBS const* value, Preference preference)
    : BpCellText(ValueText(variable, value, preference)) {}

BpComposite::BpComposite(const std::string& pattern, bool translate)
    : BpCellText(std::make_shared<output::CompositeNode>(pattern, translate)) {}

void BpComposite::Add(const BpCellText& text) {
    auto& composite = Composite(fpNode);
    if (!composite.fInList) composite.fvPlaces.emplace_back();
    composite.fvPlaces.back().fvTexts.push_back(text.Node());
}

void BpComposite::Sublist() {
    auto& composite = Composite(fpNode);
    composite.fvPlaces.push_back({{}, true});
    composite.fInList = true;
}

void BpComposite::EndSublist() {
    Composite(fpNode).fInList = false;
}

void BpComposite::SplitList() {
    const run::RunValue* run = run::Current();
    if (!run) return;
    for (const auto& [variable, value] : run->fSplit) {
        Add(BpString(variable, false));
        Add(BpString(value, false));
    }
}

void BpComposite::Finish() {
    EndSublist();
}

void GETDISPLAYOPTIONS(int* tableVariables, int* tableValues, int* outlineVariables, int* outlineValues) {
    const host::DisplayOptions options = Options();
    *tableVariables = options.fTableVariables;
    *tableValues = options.fTableValues;
    *outlineVariables = options.fOutlineVariables;
    *outlineValues = options.fOutlineValues;
}

void BpError(const BpCellText& text, BpErrorShow, BpErrorLevel level) {
    if (level >= kLevelError && run::Current()) run::Current()->fFatal = true;
    if (auto* document = host::OutputDocument::Current()) document->AddMessage(text.Node(), level);
}

void AddNotes(int kind, const BpCellText& label, const BpCellText& value) {
    if (auto* document = host::OutputDocument::Current()) document->AddNote(kind, label.Node(), value.Node());
}
