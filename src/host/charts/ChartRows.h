#pragma once

#include "contracts/ChartService.h"
#include "host/output/ChartModel.h"

#include <string>
#include <vector>

/// The rows behind a VarDataProcessor.
struct VarDataProcessor::Impl {
    struct Place {
        std::size_t fSource;
        std::size_t fField;
    };
    std::vector<output::ChartSource> fvSources;
    std::vector<Place> fvPlaces;  ///< by handle
    mutable std::string fStream;

    output::ChartSource* Find(const std::string& name);
    output::Datum* Cell(const std::string& source, const std::string& variable, std::size_t row);
    output::Datum* Cell(VarDataHandle handle, std::size_t row);
};

namespace host {

/// The sources of a stream that GetDataStream wrote; empty for other bytes.
std::vector<output::ChartSource> ReadDataStream(const std::string& stream);

}  // namespace host
