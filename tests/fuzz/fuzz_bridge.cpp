// The JSON document of a run, from its text to pivot tables.
#include "results/HRFTStatJSON.h"
#include "results/Reading.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static reading_test::Reading reading;
    host::OutputDocument document("Mixed Model Analysis");
    const host::OutputScope output(document);
    BpProcedure procedure = document.Procedure();
    HRFTStatJSON(&procedure, &reading.Source(), std::string(reinterpret_cast<const char*>(data), size)).DisplayOutput();
    return 0;
}
