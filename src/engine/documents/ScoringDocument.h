#pragma once

#include "engine/documents/XmlWriter.h"
#include "engine/glmm/TargetSpec.h"
#include "engine/lmm/Inference.h"
#include "engine/lmm/PredictionState.h"
#include "engine/model/ModelSpec.h"
#include "run/Figures.h"

#include <string>
#include <vector>

namespace engine {

/// All that scoring needs of a fitted model, free of the data that it was fitted to: what a model file carries beside
/// the parts that any consumer reads.
struct ScoringContent {
    /// A column of the record.
    struct Column {
        std::string fName;  ///< the data's variable; several columns may have the same
        bool fText = false;
        std::vector<std::string> fCategories;  ///< texts by code; empty for a number
        bool fCategorical = false;
    };
    run::Levels fSplit;  ///< values of the split variables, if the model is one of several
    std::vector<Column> fColumns;
    ModelSpec fSpec;  ///< what predictions depend on; the rest has its defaults
    bool fGeneralized = false;
    TargetSpec fTarget;  ///< of a generalized model

    std::vector<int> fKept;  ///< of the fixed columns that the fit worked with
    Eigen::MatrixXd fSpan;
    double fTotalFrequency = 0.0;
    FixedState fFixed;
    Eigen::MatrixXd fThetaCovariance;  ///< of the covariance parameters on their reported scale
    RandomState fRandom;
};

/// Writes the content as a Scoring element under the element that is open.
void WriteScoring(XmlWriter& xml, const ScoringContent& content);

/// Reads the Scoring element of a model document. problem is what is wrong with the text, as the rest of a sentence
/// that begins with the file's name ("isn't whole: ..."); empty when all is well. Every index that the content has
/// stays within its lists.
ScoringContent ReadScoring(const std::string& document, std::string& problem);

}  // namespace engine
