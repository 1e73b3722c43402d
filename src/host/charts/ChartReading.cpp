#include "host/charts/ChartDocument.h"
#include "host/charts/ChartMarkup.h"
#include "host/charts/ChartRows.h"
#include "host/strings/Catalogue.h"

#include <algorithm>
#include <map>

/// A chart document as a model: elements in the document's order, over the rows that were handed over with it.

namespace host {

namespace {

using output::ChartModel;

std::string Own(const pugi::xml_node& element) {
    return Catalogue::Current().Text(ElementText(element));
}

class Reader {
public:
    explicit Reader(const ChartDocument& document)
        : fDocument(document), fChart(document.Chart()), fpModel(std::make_shared<ChartModel>()) {}

    std::shared_ptr<ChartModel> Read(bool drawn) {
        ReadTexts();
        if (drawn) ReadDrawing();
        return fpModel;
    }

private:
    void ReadTexts() {
        ChartModel& model = *fpModel;
        model.fKind = fChart.attribute("kind").value();
        model.fDiagram = std::string_view(fChart.attribute("form").value()) == "diagram";
        model.fTitle = ElementText(fChart.child("title"));
        model.fSubtitle = ElementText(fChart.child("subtitle"));
        model.fDescription = fDocument.fDescription;
        if (model.fTitle.empty()) model.fTitle = model.fDescription;
        model.fSummary = Own(fChart.child("summary"));
        model.fCaption = ElementText(fChart.child("caption"));
        ReadFootnotes();
    }

    void ReadDrawing() {
        ChartModel& model = *fpModel;
        for (const pugi::xml_node& facet : fChart.child("faceting").children("variableReference"))
            model.fvFacets.push_back(ElementText(facet));
        ReadSources();
        if (const pugi::xml_node circle = fChart.child("circle")) {
            LayOutCircle(circle, model.fvFacets, model.fvSources);
        }
        for (const pugi::xml_node& layer : fChart.children("layer"))
            ReadLayer(layer);
        ReadAxes();
        ReadGuides();
        ReadLegends();
        ReadColumns();
        ReadInset();
    }

    void ReadFootnotes() {
        for (const pugi::xml_node& note : fChart.children("footnote")) {
            std::string text = ElementText(note);
            for (std::size_t end; !text.empty(); text.erase(0, end == std::string::npos ? end : end + 1)) {
                end = text.find('\n');
                if (end != 0) fpModel->fvFootnotes.push_back(text.substr(0, end));
            }
        }
    }

    void ReadSources() {
        for (const pugi::xml_node& element : fChart.children("source")) {
            output::ChartSource& source = fpModel->fvSources.emplace_back();
            source.fName = element.attribute("name").value();
            source.fRowsPerCase = std::max(1U, element.attribute("rowsPerCase").as_uint(1));
            for (const output::ChartSource& rows : fDocument.fvRows) {
                if (rows.fName == source.fName) TakeRows(rows, source);
            }
            source.SettleDigits();
        }
    }

    /// Whether a variable holds what marks say: such texts come with the references of a document.
    bool IsTooltip(const std::string& name) const {
        for (const pugi::xml_node& layer : fChart.children("layer")) {
            if (NameOf(layer.child("tooltip"), "variable") == name) return true;
        }
        return false;
    }

    /// The rows in the order of the document's declarations.
    void TakeRows(const output::ChartSource& rows, output::ChartSource& source) const {
        std::vector<int> from;
        std::vector<bool> plain;
        for (const auto& declaration : fDocument.fvDeclarations) {
            if (declaration->fSource != source.fName) continue;
            from.push_back(rows.Find(declaration->fField.fName));
            source.fvFields.push_back(declaration->Labelled(rows, from.back()));
            plain.push_back(!IsTooltip(declaration->fField.fName));
        }
        for (std::size_t row = 0; row < rows.fvRows.size(); ++row) {
            auto& cells = source.fvRows.emplace_back();
            for (std::size_t k = 0; k < from.size(); ++k) {
                const auto* text = std::get_if<std::string>(&rows.At(row, from[k]));
                cells.push_back(text && !plain[k] ? PlainText(*text) : rows.At(row, from[k]));
            }
        }
    }

    /// A variable's name from its name or its slot.
    std::string NameOf(const pugi::xml_node& element, const char* attribute) const {
        std::string name = element.attribute(attribute).value();
        for (const auto& declaration : fDocument.fvDeclarations) {
            if (!name.empty() && declaration->fSlot == name) return declaration->fField.fName;
        }
        return name;
    }

    std::string FirstSource() const { return fpModel->fvSources.empty() ? "" : fpModel->fvSources.front().fName; }

    const output::ChartField* FieldOf(const std::string& name) const {
        for (const auto& source : fpModel->fvSources) {
            if (const int field = source.Find(name); field >= 0) return &source.fvFields[field];
        }
        return nullptr;
    }

    /// An element's own text, or the label of the variable that it names.
    std::string TitleOf(const pugi::xml_node& title) const {
        if (std::string text = Own(title); !text.empty()) return text;
        const output::ChartField* field = FieldOf(NameOf(title, "of"));
        return field ? field->fLabel : std::string();
    }

    void ReadLayer(const pugi::xml_node& element) {
        static const std::map<std::string, output::ChartMark> kMarks{
            {"point", output::ChartMark::kPoint},  {"bar", output::ChartMark::kBar},
            {"edge", output::ChartMark::kEdge},    {"interval", output::ChartMark::kInterval},
            {"text", output::ChartMark::kText},    {"line", output::ChartMark::kLine},
            {"target", output::ChartMark::kTarget}};
        const auto mark = kMarks.find(element.attribute("mark").value());
        if (mark == kMarks.end()) return;
        output::ChartLayer layer;
        layer.fMark = mark->second;
        layer.fPlace = element.attribute("place").value();
        layer.fSource = element.attribute("source").as_string(FirstSource().c_str());
        for (const pugi::xml_node& channel : element.children())
            ReadChannel(channel, layer);
        // What stands at the chart's own level holds for every layer.
        if (!layer.Channel("color")) ReadChannel(fChart.child("color"), layer);
        if (const pugi::xml_node bins = element.child("binStatistic")) MakeBins(bins, layer);
        if (const pugi::xml_node curve = element.child("distributionStatistic")) MakeCurve(curve, layer);
        fpModel->fvLayers.push_back(std::move(layer));
    }

    void ReadChannel(const pugi::xml_node& element, output::ChartLayer& layer) const {
        const std::string role = element.name();
        if (role == "binStatistic" || role == "distributionStatistic" || !element.attribute("variable")) return;
        const std::string field = NameOf(element, "variable");
        if (role == "tooltip") {
            layer.fTooltip = field;
            return;
        }
        const output::ChartSource* source = fpModel->Source(layer.fSource);
        // A property without a value in any row is none.
        if (!source || !source->HasValues(source->Find(field))) return;
        output::ChartChannel channel;
        channel.fRole = role;
        channel.fField = field;
        channel.fRow = element.attribute("row").as_uint(1) - 1;
        channel.fPalette = element.attribute("palette").value();
        NumberAttribute(element.child("range"), "low", channel.fLow);
        NumberAttribute(element.child("range"), "high", channel.fHigh);
        layer.fvChannels.push_back(std::move(channel));
    }

    /// Bars over bins: from edge to edge about the bin's centre.
    void MakeBins(const pugi::xml_node& bins, output::ChartLayer& layer) {
        for (output::ChartSource& source : fpModel->fvSources) {
            if (source.fName != layer.fSource) continue;
            const int x = source.Find(NameOf(bins, "variable"));
            const double half = BinWidth(source, x) / 2.0;
            const std::size_t from = source.fvFields.size();
            source.fvFields.emplace_back().fName = "bin.from";
            source.fvFields.emplace_back().fName = "bin.to";
            if (x >= 0) source.fvFields[from].fFormat = source.fvFields[static_cast<std::size_t>(x)].fFormat;
            for (auto& row : source.fvRows) {
                row.resize(from + 2);
                const auto* centre = x < 0 ? nullptr : std::get_if<double>(&row[x]);
                if (!centre) continue;
                row[from] = *centre - half;
                row[from + 1] = *centre + half;
            }
        }
        for (output::ChartChannel& channel : layer.fvChannels) {
            if (channel.fRole == "x") channel.fField = "bin.from";
        }
        output::ChartChannel end;
        end.fRole = "x2";
        end.fField = "bin.to";
        layer.fvChannels.push_back(end);
    }

    void MakeCurve(const pugi::xml_node& statistic, output::ChartLayer& layer) {
        const output::ChartSource* bins = fpModel->Source(layer.fSource);
        const auto* x = layer.Channel("x");
        const auto* y = layer.Channel("y");
        if (!bins || !x || !y) return;
        output::ChartSource curve = DistributionCurve(statistic, *bins, bins->Find(x->fField), bins->Find(y->fField));
        curve.fName = "curve";
        layer.fSource = curve.fName;
        layer.fvChannels.clear();
        for (const char* role : {"x", "y"}) {
            output::ChartChannel& channel = layer.fvChannels.emplace_back();
            channel.fRole = role;
            channel.fField = role[0] == 'x' ? "X" : "Y";
        }
        fpModel->fvSources.push_back(std::move(curve));
    }

    void ReadAxes() {
        for (const pugi::xml_node& element : fChart.children("axis")) {
            output::ChartAxis axis;
            axis.fAlong = element.attribute("along").value();
            axis.fVisible = element.attribute("visible").as_bool(true);
            axis.fTitle = TitleOf(element.child("title"));
            double bound = 0.0;
            if (NumberAttribute(element, "min", bound)) axis.fMin = bound;
            if (NumberAttribute(element, "max", bound)) axis.fMax = bound;
            fpModel->fvAxes.push_back(std::move(axis));
        }
        // One range for both, so that the diagonal is one.
        if (fChart.child("sameScale") && fpModel->fvAxes.size() == 2) {
            fpModel->fvAxes[1].fMin = fpModel->fvAxes[0].fMin;
            fpModel->fvAxes[1].fMax = fpModel->fvAxes[0].fMax;
        }
    }

    void ReadGuides() {
        if (fChart.child("diagonal")) fpModel->fvGuides.push_back({true, 0.0, {}});
        for (const pugi::xml_node& element : fChart.children("lineGuide")) {
            output::ChartGuide guide;
            if (!NumberAttribute(element, "y", guide.fHeight)) continue;
            guide.fvFacetTexts = PanelOf(element.child("when").child_value());
            fpModel->fvGuides.push_back(std::move(guide));
        }
    }

    /// The facet values that an expression names which hides a line everywhere else: facet1!="a"||facet2!="b".
    static std::vector<std::string> PanelOf(const std::string& expression) {
        static constexpr std::string_view kFirst = "facet1!=&quot;", kSecond = "&quot;||facet2!=&quot;",
                                          kEnd = "&quot;";
        std::string_view rest = expression;
        if (rest.substr(0, kFirst.size()) != kFirst) return {};
        rest.remove_prefix(kFirst.size());
        if (rest.size() >= kEnd.size() && rest.substr(rest.size() - kEnd.size()) == kEnd)
            rest.remove_suffix(kEnd.size());
        const std::size_t second = rest.find(kSecond);
        if (second == std::string_view::npos) return {std::string(rest)};
        return {std::string(rest.substr(0, second)), std::string(rest.substr(second + kSecond.size()))};
    }

    void ReadLegends() {
        for (const pugi::xml_node& element : fChart.children("legend")) {
            output::ChartLegend legend;
            legend.fFor = element.attribute("for").as_string("color");
            legend.fTitle = TitleOf(element.child("title"));
            legend.fVisible = element.child("style").attribute("visible").as_bool(true);
            fpModel->fvLegends.push_back(std::move(legend));
        }
    }

    void ReadColumns() {
        for (const pugi::xml_node& element : fChart.children("column")) {
            output::ChartColumn column;
            column.fSource = element.attribute("source").as_string(FirstSource().c_str());
            column.fField = NameOf(element, "variable");
            column.fRow = element.attribute("row").as_uint(1) - 1;
            const output::ChartSource* source = fpModel->Source(column.fSource);
            const int field = source ? source->Find(column.fField) : -1;
            if (field < 0 || !HasText(*source, field)) continue;
            column.fLabel = Own(element);
            if (column.fLabel.empty() || column.fLabel == "popup1" || column.fLabel == "popup2")
                column.fLabel = source->fvFields[field].fLabel;
            if (column.fLabel.empty()) column.fLabel = column.fField;
            fpModel->fvColumns.push_back(std::move(column));
        }
    }

    /// Whether a field says anything: a chart without facets may have them empty or all zero.
    bool HasText(const output::ChartSource& source, int field) const {
        const std::string& name = source.fvFields[field].fName;
        const bool facet = name.rfind("facet", 0) == 0;
        if (facet && std::find(fpModel->fvFacets.begin(), fpModel->fvFacets.end(), name) == fpModel->fvFacets.end())
            return false;
        for (std::size_t row = 0; row < source.fvRows.size(); ++row) {
            if (!source.fvFields[field].Shown(source.At(row, field)).empty()) return true;
        }
        return false;
    }

    void ReadInset() {
        const pugi::xml_node inset = fChart.child("inset");
        if (!inset) return;
        ChartDocument document(inset.child("document").text().get());
        if (!document.fGood) return;
        document.fvRows = ReadDataStream(inset.child("rows").text().get());
        if (document.fvRows.empty() || document.fvRows.front().fvRows.empty()) return;
        fpModel->fpInset = document.Model(true);
    }

    const ChartDocument& fDocument;
    pugi::xml_node fChart;
    std::shared_ptr<ChartModel> fpModel;
};

}  // namespace

std::shared_ptr<output::ChartModel> ChartDocument::Model(bool drawn) const {
    return Reader(*this).Read(drawn);
}

}  // namespace host
