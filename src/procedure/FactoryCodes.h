#pragma once

/// Codes that cross between the factory, the adapter and the engine.

constexpr int kNoUsableRecords = 3;  ///< an iterator's fail reason
constexpr long kStatusNoValidCases = 230024;
constexpr long kStatusNotMade = 130009;  ///< the algorithm object couldn't be made
