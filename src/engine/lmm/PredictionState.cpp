#include "engine/lmm/PredictionState.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

std::string KeyOf(const std::vector<int>& codes) {
    return {reinterpret_cast<const char*>(codes.data()), codes.size() * sizeof(int)};
}

void AppendBytes(const Eigen::MatrixXd& matrix, std::string& bytes) {
    bytes.append(reinterpret_cast<const char*>(matrix.data()),
                 static_cast<std::size_t>(matrix.size()) * sizeof(double));
    bytes += static_cast<char>(matrix.rows() & 127);
}

RandomState::Errors Select(const RandomState::Errors& errors, const std::vector<int>& columns) {
    return {errors.fOwn(columns, columns), errors.fPull(columns, Eigen::all)};
}

}  // namespace

double RandomState::Numbers() const {
    double numbers = 0.0;
    for (const Errors& errors : fErrors)
        numbers += static_cast<double>(errors.fOwn.size() + errors.fPull.size());
    return numbers * static_cast<double>(fSlopes.size() + 1);
}

void RandomState::DropErrors() {
    fErrors.clear();
    fSlopes.clear();
    for (Unit& unit : fUnits)
        unit.fErrors = -1;
}

RandomState RandomState::ForBlocks(int blocks) const {
    RandomState result;
    result.fHalf = fHalf;
    for (const Slope& slope : fSlopes)
        result.fSlopes.push_back({slope.fParam, slope.fHalf, {}});
    std::unordered_map<std::string, int> known;
    for (const Unit& unit : fUnits) {
        Unit kept;
        std::vector<int> columns;
        for (const Part& part : unit.fParts) {
            if (part.fBlock >= blocks) continue;
            kept.fParts.push_back(part);
            kept.fParts.back().fColumn = static_cast<int>(columns.size());
            for (int c = 0; c < part.fWidth; ++c)
                columns.push_back(part.fColumn + c);
        }
        if (columns.empty()) continue;
        kept.fEstimate = unit.fEstimate(columns);
        if (unit.fErrors >= 0) {
            std::vector<Errors> all{Select(fErrors[unit.fErrors], columns)};
            for (const Slope& slope : fSlopes)
                all.push_back(Select(slope.fErrors[unit.fErrors], columns));
            std::string bytes;
            for (const Errors& errors : all) {
                AppendBytes(errors.fOwn, bytes);
                AppendBytes(errors.fPull, bytes);
            }
            const auto [at, added] = known.try_emplace(std::move(bytes), static_cast<int>(result.fErrors.size()));
            kept.fErrors = at->second;
            if (added) {
                result.fErrors.push_back(std::move(all[0]));
                for (std::size_t k = 0; k < fSlopes.size(); ++k)
                    result.fSlopes[k].fErrors.push_back(std::move(all[k + 1]));
            }
        }
        result.fUnits.push_back(std::move(kept));
    }
    return result;
}

KeptSource::KeptSource(RandomState state, int blocks) : fState(std::move(state)), fPlaces(blocks) {
    for (std::size_t u = 0; u < fState.fUnits.size(); ++u) {
        for (const RandomState::Part& part : fState.fUnits[u].fParts)
            fPlaces[part.fBlock][KeyOf(part.fSubject)] = {static_cast<int>(u), part.fColumn};
    }
}

const KeptSource::Place* KeptSource::Find(int block, const std::vector<int>& codes) const {
    const auto at = fPlaces[block].find(KeyOf(codes));
    return at == fPlaces[block].end() ? nullptr : &at->second;
}

bool KeptSource::Knows(int block, const std::vector<int>& codes) const {
    return Find(block, codes) != nullptr;
}

std::vector<KeptSource::Term> KeptSource::Locate(const MixedRow& row, double* estimate) const {
    std::vector<Term> terms;
    for (const MixedRow::RandomTerm& wanted : row.fRandom) {
        const Place& place = *Find(wanted.fBlock, wanted.fSubject);
        const Eigen::VectorXd& estimates = fState.fUnits[place.fUnit].fEstimate;
        auto term = std::find_if(terms.begin(), terms.end(), [&](const Term& t) { return t.fUnit == place.fUnit; });
        if (term == terms.end()) {
            terms.push_back({place.fUnit, Eigen::VectorXd::Zero(estimates.size())});
            term = terms.end() - 1;
        }
        term->fCoefficients[place.fColumn + wanted.fColumn] += wanted.fCoefficient;
        *estimate += wanted.fCoefficient * estimates[place.fColumn + wanted.fColumn];
    }
    return terms;
}

// Takes each row's pull on the fixed effects off its half.
void KeptSource::Pull(const std::vector<std::vector<Term>>& terms, const std::vector<RandomState::Errors>& errors,
                      Eigen::MatrixXd& half) const {
    for (std::size_t i = 0; i < terms.size(); ++i) {
        for (const Term& term : terms[i]) {
            const RandomState::Errors& own = errors[fState.fUnits[term.fUnit].fErrors];
            half.col(static_cast<Eigen::Index>(i)) -= own.fPull.transpose() * term.fCoefficients;
        }
    }
}

Eigen::MatrixXd KeptSource::OwnCovariance(const std::vector<std::vector<Term>>& terms,
                                          const std::vector<RandomState::Errors>& errors) const {
    const auto count = static_cast<Eigen::Index>(terms.size());
    Eigen::MatrixXd covariance = Eigen::MatrixXd::Zero(count, count);
    for (Eigen::Index i = 0; i < count; ++i) {
        for (Eigen::Index j = 0; j < count; ++j) {
            for (const Term& left : terms[i]) {
                for (const Term& right : terms[j]) {
                    if (left.fUnit != right.fUnit) continue;
                    const RandomState::Errors& own = errors[fState.fUnits[left.fUnit].fErrors];
                    covariance(i, j) += left.fCoefficients.dot(own.fOwn * right.fCoefficients);
                }
            }
        }
    }
    return covariance;
}

RandomSource::Combination KeptSource::Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows,
                                              bool slopes) const {
    Combination result;
    std::vector<std::vector<Term>> terms;
    result.fRandom.setZero(kept.cols());
    bool known = true;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        terms.push_back(Locate(rows[i], &result.fRandom[static_cast<Eigen::Index>(i)]));
        for (const Term& term : terms.back())
            known = known && fState.fUnits[term.fUnit].fErrors >= 0;
    }
    if (!known) {
        result.fCovariance = Eigen::MatrixXd::Constant(kept.cols(), kept.cols(), kMissing);
        return result;
    }
    Eigen::MatrixXd half = fState.fHalf.transpose() * kept;
    Pull(terms, fState.fErrors, half);
    result.fCovariance = half.transpose() * half + OwnCovariance(terms, fState.fErrors);
    if (!slopes) return result;
    NeedSlopes();
    for (const RandomState::Slope& slope : fState.fSlopes) {
        Eigen::MatrixXd change = slope.fHalf.transpose() * kept;
        Pull(terms, slope.fErrors, change);
        const Eigen::MatrixXd product = change.transpose() * half;
        result.fSlopes.resize(std::max<std::size_t>(result.fSlopes.size(), slope.fParam + 1));
        result.fSlopes[slope.fParam] = product + product.transpose() + OwnCovariance(terms, slope.fErrors);
    }
    return result;
}

std::vector<SubjectPrediction> KeptSource::Predictions(int block) const {
    std::vector<SubjectPrediction> predictions;
    for (const RandomState::Unit& unit : fState.fUnits) {
        for (const RandomState::Part& part : unit.fParts) {
            if (part.fBlock != block) continue;
            SubjectPrediction prediction;
            prediction.fSubject = part.fSubject;
            prediction.fGroup = part.fGroup;
            prediction.fEstimate = unit.fEstimate.segment(part.fColumn, part.fWidth);
            prediction.fStdError.setConstant(part.fWidth, kMissing);
            for (int c = 0; c < part.fWidth && unit.fErrors >= 0; ++c) {
                const RandomState::Errors& errors = fState.fErrors[unit.fErrors];
                const int at = part.fColumn + c;
                prediction.fStdError[c] =
                    std::sqrt(std::max(0.0, errors.fOwn(at, at) + errors.fPull.row(at).squaredNorm()));
            }
            predictions.push_back(std::move(prediction));
        }
    }
    return predictions;
}

}  // namespace engine
