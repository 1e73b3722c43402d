#pragma once

#include <map>
#include <memory>
#include <string>

namespace apptest {

/// A consumer of PMML 4.4 general regression models, written from the standard alone (Data Mining Group,
/// https://dmg.org/pmml/v4-4-1/GeneralRegression.html): it reads no extensions.
class PmmlEvaluator {
public:
    explicit PmmlEvaluator(const std::string& document);
    ~PmmlEvaluator();

    bool IsScorable() const;
    /// The predicted mean of a row of texts by field.
    double Mean(const std::map<std::string, std::string>& row) const;
    /// Probabilities of the target's categories.
    std::map<std::string, double> Probabilities(const std::map<std::string, std::string>& row) const;

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

}  // namespace apptest
