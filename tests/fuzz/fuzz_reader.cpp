// The result document of a run, from its text to the viewer's output: whatever stands in it, the outcome is a table, a
// message or silence.
#include "results/HRFTProcCustom.h"
#include "results/Reading.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static reading_test::Reading reading;
    host::OutputDocument document("Mixed Model Analysis");
    const host::OutputScope output(document);
    BpProcedure procedure = document.Procedure();
    HRFTProcCustom custom(&procedure, &reading.Source());
    CFProcCustom& called = custom;
    called.SetContext(&procedure, &reading.Source(), &reading.MetaData());
    CFStatXMLInfoBlock block;
    block.fText.assign(reinterpret_cast<const char*>(data), size);
    called.ProcessOutputXML(reading_test::kModelDocument, block);
    return 0;
}
