#include "tables/json/EBLUPTable.h"

namespace tables {

namespace {

const char* const kTableText = "Empirical Best Linear Unbiased Predictions";

_jobject* FindTableNode(const JNIJSONObject& document) {
    _jobject* top = document.getTop();
    if (_jobject* node = document.getByPath(top, "glmm.RandomEffectsParameters.tables")) return node;
    if (_jobject* node = document.getByPath(top, "tables")) return node;
    return top;
}

std::string TranslatedTitle(const std::string& stringTable) {
    FacSTDictionary dictionary(PathFactory::getPathInstance(3).GetStringTableDirectory());
    dictionary.SetProcedure(stringTable);
    return dictionary.LookUp(kTableText);
}

}  // namespace

void WriteEBLUPTables(JNIJSONObject& document, BpHeading& parent, ProcedureDataSource const* source,
                      const EBLUPTableRequest& request) {
    if (!document.isGood()) return;
    _jobject* node = FindTableNode(document);
    if (!node) return;
    BpHeading heading = parent.Heading(BpString("Random Effects Parameters", true));
    const std::string title = TranslatedTitle(request.fStringTable);
    const dataDictionary dictionary;
    const auto writeTable = [&](_jobject* table, const std::string& tableTitle) {
        jsonPivot pivot(document, table, source, dictionary);
        pivot.translateTableStrings(true);
        if (request.fSupportSplits) pivot.supportSplits(*request.fSupportSplits);
        if (request.fSplitHeading) {
            BpHeading splitHeading = heading.Heading(BpString(*request.fSplitHeading, false));
            pivot.createPivotTable(&splitHeading, tableTitle, false, kTableText);
        } else {
            pivot.createPivotTable(&heading, tableTitle, false, kTableText);
        }
    };
    if (!JNIJSONArtifact::isJSONArray(node)) {
        writeTable(node, title);
        return;
    }
    const JNIJSONArray list(node);
    for (int i = 0; i < list.size(); ++i) {
        writeTable(list.get(i), list.size() > 1 ? title + " " + std::to_string(i + 1) : title);
    }
}

}  // namespace tables
