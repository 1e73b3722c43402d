#pragma once

namespace engine {

/// Probabilities and quantiles; a missing argument or one out of range gives a missing value.

double TwoSidedT(double t, double df);            ///< P(|T| > |t|); df may be infinite
double UpperF(double f, double df1, double df2);  ///< P(F > f); df2 may be infinite
double TwoSidedNormal(double z);
double UpperT(double df, double confidence);  ///< quantile at 1/2 + confidence/2
double UpperNormal(double confidence);

}  // namespace engine
