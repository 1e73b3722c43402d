#pragma once

#include "app/Options.h"

namespace app {

/// Scores a data file by a model file: its rows come out in their order with predictions behind them. What of the data
/// doesn't fit the model is told, a sentence a kind with its count, or with --strict refused. Throws Failure.
int Predict(const Options& options);

}  // namespace app
