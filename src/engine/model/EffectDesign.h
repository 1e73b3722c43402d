#pragma once

#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"

#include <vector>

namespace engine {

/// The one column of an effect in which a record is not zero.
struct ColumnHit {
    int fColumn;
    double fValue;
};

/// The overparameterised columns of a list of effects: each effect has one column for each combination of its factors'
/// levels, the first factor slowest, and a record is different from zero in one of them.
///
/// Covariates may be centred: an effect whose covariates are centred spans, with the effects before it, the same space
/// as the original one. See CentreCovariates.
class EffectDesign {
public:
    EffectDesign() = default;
    /// levels: per record variable, its number of categories.
    EffectDesign(std::vector<ModelEffect> effects, const std::vector<int>& levels);

    int NumEffects() const { return static_cast<int>(fEffects.size()); }
    int NumColumns() const { return fNumColumns; }
    const std::vector<ModelEffect>& Effects() const { return fEffects; }
    int Offset(int effect) const { return fTerms[effect].fOffset; }
    int Columns(int effect) const { return fTerms[effect].fColumns; }
    int EffectOf(int column) const;
    /// Level codes of a column's factors.
    std::vector<int> LevelsOf(int column) const;

    /// Takes centres (per record variable) off the covariates of every effect whose lower-order companions stand before
    /// it, so that the span of the first j columns stays what it was for each j.
    void CentreCovariates(const std::vector<double>& centres);

    /// Hits of a record, one an effect: hits has room for NumEffects().
    void Hits(const double* record, ColumnHit* hits) const {
        for (std::size_t e = 0; e < fTerms.size(); ++e)
            hits[e] = Hit(fTerms[e], record, fTerms[e].fCentred);
    }
    /// The same without centring.
    void PlainHits(const double* record, ColumnHit* hits) const {
        for (std::size_t e = 0; e < fTerms.size(); ++e)
            hits[e] = Hit(fTerms[e], record, false);
    }

    /// T with original columns = centred columns * T: unit upper triangular, NumColumns() square.
    Eigen::MatrixXd CentredToPlain() const;
    bool IsCentred() const;

private:
    struct Part {
        int fVariable;
        int fStride;  // factors
        int fPower;   // covariates
        double fCentre;
    };
    struct Term {
        int fOffset = 0;
        int fColumns = 1;
        bool fCentred = false;
        std::vector<Part> fFactors;
        std::vector<Part> fCovariates;
    };

    static ColumnHit Hit(const Term& term, const double* record, bool centred) {
        int column = term.fOffset;
        for (const Part& part : term.fFactors)
            column += static_cast<int>(record[part.fVariable]) * part.fStride;
        double value = 1.0;
        for (const Part& part : term.fCovariates) {
            const double x = centred ? record[part.fVariable] - part.fCentre : record[part.fVariable];
            for (int i = 0; i < part.fPower; ++i)
                value *= x;
        }
        return {column, value};
    }

    // The effect before `before` that spans the indicators of `term` times the given powers; -1 if there is none.
    int FindCompanion(const Term& term, const std::vector<int>& powers, int before) const;

    std::vector<ModelEffect> fEffects;
    std::vector<Term> fTerms;
    int fNumColumns = 0;
};

}  // namespace engine
