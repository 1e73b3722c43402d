#include "app/PmmlEvaluator.h"

#include "app/CsvText.h"

#include <cmath>
#include <numbers>
#include <pugixml.hpp>
#include <set>
#include <stdexcept>
#include <vector>

namespace apptest {

namespace {

double Inverse(const std::string& link, double eta, double parameter) {
    if (link == "identity") return eta;
    if (link == "log") return std::exp(eta);
    if (link == "logc") return 1.0 - std::exp(eta);
    if (link == "logit") return 1.0 / (1.0 + std::exp(-eta));
    if (link == "probit") return 0.5 * std::erfc(-eta / std::numbers::sqrt2);
    if (link == "cloglog") return 1.0 - std::exp(-std::exp(eta));
    if (link == "loglog") return std::exp(-std::exp(-eta));
    if (link == "cauchit") return 0.5 + std::atan(eta) / std::numbers::pi;
    if (link == "power") return std::pow(eta, 1.0 / parameter);
    throw std::runtime_error("unknown link " + link);
}

}  // namespace

struct PmmlEvaluator::Impl {
    using Row = std::map<std::string, std::string>;

    double Field(const Row& row, const std::string& name) const {
        const auto derived = fModel.child("LocalTransformations").find_child_by_attribute("name", name.c_str());
        if (!derived) return Csv::ToNumber(row.at(name));
        const pugi::xml_node apply = derived.child("Apply");
        std::vector<double> values;
        for (const pugi::xml_node part : apply.children()) {
            values.push_back(std::string(part.name()) == "Constant" ? part.text().as_double()
                                                                    : Field(row, part.attribute("field").value()));
        }
        return std::string(apply.attribute("function").value()) == "-" ? values[0] - values[1] : values[0] + values[1];
    }

    /// Value of each parameter's column of the design.
    std::map<std::string, double> Design(const Row& row) const {
        std::set<std::string> factors;
        for (const pugi::xml_node predictor : fModel.child("FactorList").children("Predictor"))
            factors.insert(predictor.attribute("name").value());
        std::map<std::string, double> design;
        for (const pugi::xml_node parameter : fModel.child("ParameterList").children("Parameter"))
            design[parameter.attribute("name").value()] = 1.0;
        for (const pugi::xml_node cell : fModel.child("PPMatrix").children("PPCell")) {
            const std::string field = cell.attribute("predictorName").value();
            double& value = design.at(cell.attribute("parameterName").value());
            if (factors.contains(field)) {
                if (row.at(field) != cell.attribute("value").value()) value = 0.0;
            } else {
                value *= std::pow(Csv::ToNumber(row.at(field)), cell.attribute("value").as_double());
            }
        }
        return design;
    }

    /// The combinations by target category; cells without a category count for all of them.
    std::map<std::string, double> Combinations(const Row& row) const {
        const std::map<std::string, double> design = Design(row);
        std::map<std::string, double> sums;
        double common = 0.0;
        if (const auto offset = fModel.attribute("offsetVariable")) common += Field(row, offset.value());
        common += fModel.attribute("offsetValue").as_double(0.0);
        for (const pugi::xml_node cell : fModel.child("ParamMatrix").children("PCell")) {
            const double part = cell.attribute("beta").as_double() * design.at(cell.attribute("parameterName").value());
            if (const auto category = cell.attribute("targetCategory"))
                sums[category.value()] += part;
            else
                common += part;
        }
        if (sums.empty()) sums[""] = 0.0;
        for (auto& [category, sum] : sums)
            sum += common;
        return sums;
    }

    std::vector<std::string> Categories() const {
        const pugi::xml_node field =
            fDocument.child("PMML")
                .child("DataDictionary")
                .find_child_by_attribute("DataField", "name", fModel.attribute("targetVariableName").value());
        std::vector<std::string> categories;
        for (const pugi::xml_node value : field.children("Value"))
            categories.emplace_back(value.attribute("value").value());
        return categories;
    }

    pugi::xml_document fDocument;
    pugi::xml_node fModel;
};

PmmlEvaluator::PmmlEvaluator(const std::string& document) : fpImpl(std::make_unique<Impl>()) {
    if (!fpImpl->fDocument.load_string(document.c_str())) throw std::runtime_error("not XML");
    fpImpl->fModel = fpImpl->fDocument.child("PMML").child("GeneralRegressionModel");
}

PmmlEvaluator::~PmmlEvaluator() = default;

bool PmmlEvaluator::IsScorable() const {
    return fpImpl->fModel.attribute("isScorable").as_bool(true);
}

double PmmlEvaluator::Mean(const std::map<std::string, std::string>& row) const {
    const pugi::xml_node model = fpImpl->fModel;
    double size = 1.0;
    if (const auto trials = model.attribute("trialsVariable")) size = fpImpl->Field(row, trials.value());
    if (const auto trials = model.attribute("trialsValue")) size = trials.as_double();
    const double eta = fpImpl->Combinations(row).begin()->second;
    return size * Inverse(model.attribute("linkFunction").value(), eta, model.attribute("linkParameter").as_double());
}

std::map<std::string, double> PmmlEvaluator::Probabilities(const std::map<std::string, std::string>& row) const {
    const pugi::xml_node model = fpImpl->fModel;
    const std::string type = model.attribute("modelType").value();
    const std::map<std::string, double> eta = fpImpl->Combinations(row);
    const std::vector<std::string> categories = fpImpl->Categories();
    std::map<std::string, double> result;
    if (type == "multinomialLogistic") {
        double sum = 1.0;
        for (const auto& [category, value] : eta)
            sum += std::exp(value);
        for (const std::string& category : categories)
            result[category] = (eta.contains(category) ? std::exp(eta.at(category)) : 1.0) / sum;
    } else if (type == "ordinalMultinomial") {
        double below = 0.0;
        for (std::size_t j = 0; j < categories.size(); ++j) {
            const bool last = j + 1 == categories.size();
            const double up =
                last ? 1.0 : Inverse(model.attribute("cumulativeLink").value(), eta.at(categories[j]), 1.0);
            result[categories[j]] = up - below;
            below = up;
        }
    } else {
        const std::string reference = model.attribute("targetReferenceCategory").value();
        const double event = Inverse(model.attribute("linkFunction").value(), eta.begin()->second,
                                     model.attribute("linkParameter").as_double());
        for (const std::string& category : categories)
            result[category] = category == reference ? 1.0 - event : event;
    }
    return result;
}

}  // namespace apptest
