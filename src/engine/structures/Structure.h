#pragma once

#include "engine/model/Matrices.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

/// The rows that one subject has in a structure's matrix.
///
/// A random block's subject always has all rows, positions 0 to dimension - 1. A repeated block's subject has one row a
/// record: its position is the level's position in the split's ascending level order, so that a missing level keeps its
/// lag. Only the members that a structure needs are filled.
struct Places {
    std::vector<int> fPositions;  ///< per row, the level's position, 0-based; Kronecker: position in the first factor
    std::vector<int> fSecond;     ///< Kronecker only: per row, the position in the second factor
    Eigen::MatrixXd fDistances;   ///< spatial only: n x n Euclidean distances between the rows
    int Size() const { return static_cast<int>(fPositions.size()); }
};

enum class ParamKind { kVariance, kCovariance, kCorrelation, kLoading, kRange, kScale };

/// What is known of one parameter before any data.
struct ParamInfo {
    std::string fName;           ///< the field's standard term: "Variance", "UN(2,1)", "AR1 rho"
    ParamKind fKind;             ///< decides the scale on which confidence limits are computed
    double fLower;               ///< closed bound, -infinity if none
    double fUpper;               ///< closed bound, +infinity if none
    bool fFixed = false;         ///< held at its starting value and reported as redundant: a Kronecker second factor's
                                 ///< UN(1,1), and what one position can't tell, as a correlation
    bool fSecondFactor = false;  ///< Kronecker: belongs to the second factor
};

/// What starting values may be taken from.
struct StartHint {
    double fVariance = 1.0;     ///< the variance to be explained by this structure, above 0
    Eigen::MatrixXd fMoments;   ///< pooled moment estimate of the matrix, dimension square, or 0 x 0 if none
    double fMinDistance = 0.0;  ///< spatial: least distance above 0
    double fMaxDistance = 0.0;  ///< spatial: greatest distance
};

/// A parametric family of covariance matrices with analytic derivatives.
///
/// Thread-safe: all operations are const and keep no scratch space; callers own the output matrices, which are resized
/// to places.Size() square and filled completely, both triangles.
class Structure {
public:
    virtual ~Structure() = default;

    /// Order of the full matrix: columns of a random block, levels of a repeated one (the product for Kronecker). 1
    /// for structures over distances: the rows alone decide their order, and StartHint::fMoments is not used.
    virtual int Dimension() const = 0;

    /// One entry a parameter, in reported order.
    virtual const std::vector<ParamInfo>& Params() const = 0;
    int NumParams() const { return static_cast<int>(Params().size()); }

    /// Strictly feasible values from which iteration may start.
    virtual Eigen::VectorXd Start(const StartHint& hint) const = 0;

    /// Further starting points worth trying (several optima, kinks); empty for well-behaved structures.
    virtual std::vector<Eigen::VectorXd> StartGrid(const StartHint&) const { return {}; }

    /// Whether theta is within its bounds and gives a positive semidefinite matrix on the full dimension.
    /// Structures over distances check their bounds only; the caller's Cholesky of each subject tells the rest.
    virtual bool Feasible(const Eigen::VectorXd& theta) const = 0;

    /// The matrix at theta for the rows of places.
    virtual void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const = 0;

    /// Its derivative in parameter k.
    virtual void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const = 0;

    /// Its second derivative in parameters k and l. False, with out untouched, when it is zero everywhere.
    virtual bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l,
                        Eigen::MatrixXd& out) const = 0;

    /// True when the matrix is linear in the parameters: Second is false for every pair.
    virtual bool IsLinear() const = 0;

    /// The same family on the scale on which it is best estimated, or null when that is this one. An unstructured
    /// matrix is estimated through its Cholesky factor, whose boundary is loss of rank.
    virtual std::unique_ptr<Structure> Working() const { return nullptr; }

    /// Reported parameters at the working ones, with the Jacobian d theta / d working (rows: reported) if asked for.
    /// Identity unless Working gives another family.
    virtual Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const;

    /// Working parameters that give the reported ones.
    virtual Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const { return theta; }
};

/// The engine's covariance type numbers (what the settings' covariance type holds) and the structures behind them.
enum class CovarianceType {
    kARH1 = 0,
    kAD1 = 1,
    kCS = 2,
    kDIAG = 3,
    kID = 4,
    kTP = 5,
    kUN = 7,
    kVC = 8,
    kAR1 = 9,
    kARMA11 = 10,
    kCSH = 11,
    kCSR = 12,
    kFA1 = 13,
    kHF = 14,
    kTPH = 15,
    kUNR = 16,
    kFAH1 = 17,
    kSPPOW = 18,
    kSPEXP = 19,
    kSPGAU = 20,
    kSPLIN = 21,
    kSPLINLOG = 22,
    kSPSPH = 23,
    kUN_UN = 24,
    kUN_AR1 = 25,
    kUN_CS = 26
};

/// Where a type may be used, and what it needs.
struct CovarianceTraits {
    CovarianceType fType;
    std::string_view fWord;  ///< short word as the documents and tables write it: "AR1", "UN_CS"
    bool fNeedsDistances;    ///< spatial: Places::fDistances is read, fPositions only for its size
    bool fKronecker;         ///< Places::fSecond is read too
    bool fInRandom;          ///< allowed in a random block
    bool fInRepeated;        ///< allowed in a repeated block
};

/// All types that exist, in the order of their numbers.
std::vector<CovarianceTraits> AllCovarianceTraits();

/// Those of one type, or null when it does not exist. Lives as long as the program.
const CovarianceTraits* FindCovarianceTraits(CovarianceType type);

/// Short word of a type, or empty when it does not exist.
std::string_view CovarianceWord(CovarianceType type);

/// What a structure is built for.
struct StructureShape {
    int fDimension = 1;        ///< columns or levels; Kronecker: of the first factor
    int fSecondDimension = 1;  ///< Kronecker: of the second factor
    std::vector<int>
        fEffectColumns;           ///< random VC: number of columns of each effect, in order, adding up to fDimension
    int fSpaceDimension = 0;      ///< spatial: number of coordinates
    bool fFixedVariance = false;  ///< ID only: the variance is held where it starts
};

/// Why a spatial type is not valid for the places, as a sentence that says what to do; empty when it is, and for other
/// types. leastDistance is the least distance between two different rows of one subject: 0 when two coincide, infinity
/// when no subject has two rows.
std::string SpaceObjection(CovarianceType type, int spaceDimension, double leastDistance);

/// A structure of the type for the shape. Null when the type does not exist, a dimension is below 1, or the columns of
/// the effects don't add up to the dimension.
std::unique_ptr<Structure> MakeStructure(CovarianceType type, const StructureShape& shape);

}  // namespace engine
