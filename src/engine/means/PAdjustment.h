#pragma once

#include <vector>

namespace engine {

/// How p values of one family are adjusted for their number. Values are the contract's.
enum class PAdjustment { kLeastDifference = 0, kSequentialBonferroni = 1, kSequentialSidak = 3 };

/// A family's p values adjusted, and the level of the limits that go with each.
struct AdjustedFamily {
    std::vector<double> fP;
    std::vector<double> fConfidence;
};

/// Step-down adjustment: the i-th smallest of m p values becomes min(1, (m - i + 1) p) (Holm 1979, Scandinavian Journal
/// of Statistics 6, 65-70) or 1 - (1 - p)^(m - i + 1) (Holland and Copenhaver 1987, Biometrics 43, 417-423), made
/// monotone. Each limit has the level at which its own step tests, 1 - alpha/(m - i + 1) or (1 - alpha)^(1/(m - i +
/// 1)), so that limits of different contrasts are approximate together. A missing p value stays missing, keeps the
/// plain level, and does not count.
AdjustedFamily Adjust(const std::vector<double>& p, PAdjustment method, double confidence);

}  // namespace engine
