#pragma once

#include "run/RunValue.h"

#include <nlohmann/json.hpp>

namespace report {

using Json = nlohmann::ordered_json;

/// A double, or null for what is missing or not finite.
Json Number(double value);

/// One entry of "splits".
Json SplitJson(const run::SplitResult& split);

}  // namespace report
