#include "engine/lmm/PredictionState.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>

namespace engine {

namespace {

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

void RandomState::Shorten(double numbers) {
    if (Numbers() > numbers) fSlopes.clear();
    if (Numbers() <= numbers) return;
    fErrors.clear();
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

KeptSource::KeptSource(RandomState state, int blocks) : fState(std::move(state)), fSubjects(blocks), fPlaces(blocks) {
    for (std::size_t u = 0; u < fState.fUnits.size(); ++u) {
        for (const RandomState::Part& part : fState.fUnits[u].fParts) {
            std::vector<Place>& places = fPlaces[part.fBlock];
            const std::size_t subject = fSubjects[part.fBlock].Add(part.fSubject);
            places.resize(std::max(places.size(), subject + 1));
            places[subject] = {static_cast<int>(u), part.fColumn};
        }
    }
}

double KeptSource::Predicted(int block, int subject, int column) const {
    const Place& place = fPlaces[block][subject];
    return fState.fUnits[place.fUnit].fEstimate[place.fColumn + column];
}

bool KeptSource::KnowsErrors(std::span<const MixedRow> rows) const {
    for (const MixedRow& row : rows) {
        for (const MixedRow::RandomTerm& term : row.fRandom) {
            if (fState.fUnits[PlaceOf(term).fUnit].fErrors < 0) return false;
        }
    }
    return true;
}

// Takes each row's pull on the fixed effects off its half.
void KeptSource::Pull(std::span<const MixedRow> rows, const std::vector<RandomState::Errors>& errors,
                      Eigen::MatrixXd& half) const {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (const MixedRow::RandomTerm& term : rows[i].fRandom) {
            const Place& place = PlaceOf(term);
            const RandomState::Errors& own = errors[fState.fUnits[place.fUnit].fErrors];
            half.col(static_cast<Eigen::Index>(i)) -=
                term.fCoefficient * own.fPull.row(place.fColumn + term.fColumn).transpose();
        }
    }
}

// A row has few terms, however many effects a unit has.
void KeptSource::AddOwn(std::span<const MixedRow> rows, const std::vector<RandomState::Errors>& errors,
                        Eigen::MatrixXd& covariance) const {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t j = 0; j < rows.size(); ++j) {
            double sum = 0.0;
            for (const MixedRow::RandomTerm& left : rows[i].fRandom) {
                const Place& at = PlaceOf(left);
                for (const MixedRow::RandomTerm& right : rows[j].fRandom) {
                    const Place& other = PlaceOf(right);
                    if (at.fUnit != other.fUnit) continue;
                    const Eigen::MatrixXd& own = errors[fState.fUnits[at.fUnit].fErrors].fOwn;
                    sum += left.fCoefficient * own(at.fColumn + left.fColumn, other.fColumn + right.fColumn) *
                           right.fCoefficient;
                }
            }
            covariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) += sum;
        }
    }
}

void KeptSource::Combine(const Eigen::MatrixXd& kept, std::span<const MixedRow> rows, bool slopes,
                         Combination& result) const {
    if (!KnowsErrors(rows)) {
        result.fCovariance = Eigen::MatrixXd::Constant(kept.cols(), kept.cols(), kMissing);
        return;
    }
    Eigen::MatrixXd& half = result.fHalf;
    half.noalias() = fState.fHalf.transpose().lazyProduct(kept);
    Pull(rows, fState.fErrors, half);
    result.fCovariance.noalias() = half.transpose().lazyProduct(half);
    AddOwn(rows, fState.fErrors, result.fCovariance);
    if (!slopes) return;
    NeedSlopes();
    for (const RandomState::Slope& slope : fState.fSlopes) {
        Eigen::MatrixXd& change = result.fChange;
        change.noalias() = slope.fHalf.transpose().lazyProduct(kept);
        Pull(rows, slope.fErrors, change);
        result.fSlopes.resize(std::max<std::size_t>(result.fSlopes.size(), slope.fParam + 1));
        Eigen::MatrixXd& out = result.fSlopes[slope.fParam];
        out.noalias() = change.transpose().lazyProduct(half);
        out.noalias() += half.transpose().lazyProduct(change);
        AddOwn(rows, slope.fErrors, out);
    }
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
