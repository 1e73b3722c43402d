#pragma once

#include "contracts/ChartService.h"
#include "host/output/ChartModel.h"

#include <map>
#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

/// What stands behind a chart document: its XML, and what was said beside it.
namespace host {

/// A variable as a document declares it, with what an XVariable set.
struct ChartDeclaration {
    std::string fSource;
    std::string fSlot;
    output::ChartField fField;
    std::optional<QVTA_Variable> fVariable;             ///< of the data, where its labels are found
    bool fRelabel = false;                              ///< values show their labels
    std::map<std::string, std::string> fNamedRelabels;  ///< by the value's text

    /// The field with the labels of the values that a source holds.
    output::ChartField Labelled(const output::ChartSource& source, int field) const;
};

struct ChartDocument {
    pugi::xml_document fXml;
    bool fGood = false;
    std::vector<std::shared_ptr<ChartDeclaration>> fvDeclarations;
    std::string fDescription;
    std::vector<output::ChartSource> fvRows;

    explicit ChartDocument(const std::string& text);
    pugi::xml_node Chart() const { return fXml.child("chart"); }
    /// The chart that the document describes, over its rows; its texts alone when it isn't to be drawn.
    std::shared_ptr<output::ChartModel> Model(bool drawn) const;
};

/// Points on the curve of a histogram's distribution, as a source of X and Y; no rows where the parameters make none.
/// The normal curve takes mean and deviation from the bins, the others from the element's parameters: gamma (shape,
/// rate), inverse Gaussian (mean, shape; Folks and Chhikara, JRSS B 40, 1978, eq. 1), negative binomial (r and p, mean
/// r(1-p)/p), Poisson (mean). The curve is on the scale of counts.
output::ChartSource DistributionCurve(const pugi::xml_node& statistic, const output::ChartSource& bins, int x, int y);

/// The distance between neighbouring bins; 1 for a single one.
double BinWidth(const output::ChartSource& bins, int x);

/// Puts the nodes of a network on a circle, panel by panel, and the ends of its edges with them: fields circle.x,
/// circle.y and, of the edges, circle.x2, circle.y2; of the nodes, circle.label.
void LayOutCircle(const pugi::xml_node& circle, const std::vector<std::string>& facets,
                  std::vector<output::ChartSource>& sources);

}  // namespace host
