#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace bench {

/// One workload: data made from a fixed seed, the command line that fits it, and what we aim at.
struct Workload {
    std::string fName;
    std::string fWhat;
    void (*fMake)(const std::filesystem::path& file);
    std::vector<std::string> fArguments;  ///< of `hierfit fit`, the formula first, without the data
    double fAimSeconds;                   ///< 0: none
    double fAimMiB;                       ///< 0: none
    bool fHeavy;                          ///< run only when asked for by name or with --heavy
};

const std::vector<Workload>& Workloads();

}  // namespace bench
