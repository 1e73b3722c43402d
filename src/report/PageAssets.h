#pragma once

namespace report {

/// The page's style and script as they were compiled in, and their SHA-256 in hexadecimal digits.
extern const char* const kPageStyle;
extern const char* const kPageStyleHash;
extern const char* const kPageScript;
extern const char* const kPageScriptHash;

/// What draws the charts, bundled from its packages; both empty in a build that had no access to them.
extern const char* const kChartScript;
extern const char* const kChartScriptHash;

}  // namespace report
