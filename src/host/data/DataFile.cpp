#include "host/data/DataFile.h"

#include "host/data/DelimitedReader.h"
#include "host/data/Filter.h"
#include "host/data/TableOrder.h"
#include "host/data/TableSchema.h"

#include <algorithm>

namespace host {
namespace {

class TableFinisher {
public:
    TableFinisher(TableContent& content, const DataOptions& options) : fContent(content), fOptions(options) {}

    /// Null if all went well.
    std::optional<DataError> Finish() {
        SetLevels(fOptions.fNominal, "nominal", Level::kNominal);
        SetLevels(fOptions.fOrdinal, "ordinal", Level::kOrdinal);
        SetWeight();
        SetSplits();
        if (!fError) Arrange();
        return fError;
    }

private:
    int Find(const std::string& name, const std::string& use) {
        const int index = fContent.Find(name);
        if (index < 0 && !fError)
            fError =
                DataError{"there is no variable \"" + name + "\", named as " + use + SuggestVariable(fContent, name),
                          fContent.fSource,
                          0,
                          {}};
        return index;
    }

    void SetLevels(const std::vector<std::string>& names, const std::string& use, Level level) {
        for (const std::string& name : names)
            if (const int index = Find(name, use); index >= 0) fContent.fColumns[index].fVariable.fLevel = level;
    }

    void SetWeight() {
        if (fOptions.fWeight.empty()) return;
        fContent.fWeight = Find(fOptions.fWeight, "the frequency weight");
        if (fContent.fWeight < 0) return;
        const Variable& variable = fContent.fColumns[fContent.fWeight].fVariable;
        if (variable.IsText() && !fError)
            fError = DataError{"the frequency weight must be numeric" +
                                   (variable.fWhyText.empty() ? std::string() : ", but " + variable.fWhyText),
                               fContent.fSource, 0, variable.fName};
    }

    void SetSplits() {
        for (const std::string& name : fOptions.fSplitBy) {
            const int index = Find(name, "a split variable");
            if (index >= 0 && std::count(fContent.fSplitBy.begin(), fContent.fSplitBy.end(), index) == 0)
                fContent.fSplitBy.push_back(index);
        }
    }

    void Arrange() {
        std::string error;
        std::shared_ptr<const Filter> filter;
        if (!fOptions.fFilter.empty()) {
            auto parsed = Filter::Parse(fOptions.fFilter, fContent);
            if (!parsed) {
                fError = parsed.Error();
                return;
            }
            filter = *parsed;
        }
        if (!fContent.SealAll(error) ||
            !OrderTable(fContent, filter.get(), fOptions.fPlace, fOptions.fWindowBytes, error) ||
            !fContent.SealAll(error))
            fError = DataError{error, {}, 0, {}};
    }

    TableContent& fContent;
    const DataOptions& fOptions;
    std::optional<DataError> fError;
};

}  // namespace

Outcome<std::shared_ptr<Table>> FinishTable(TableContent&& content, const DataOptions& options) {
    if (auto error = TableFinisher(content, options).Finish()) return *error;
    return std::make_shared<Table>(std::move(content));
}

Outcome<std::shared_ptr<Table>> OpenDataFile(const std::string& file, const DataOptions& options) {
    TableSchema schema;
    const std::string schemaFile = options.fSchemaFile.empty() ? FindTableSchema(file) : options.fSchemaFile;
    if (!schemaFile.empty()) {
        auto read = ReadTableSchema(schemaFile);
        if (!read) return read.Error();
        schema = std::move(*read);
    }
    const DelimitedOptions delimited{options.fSeparator, options.fDecimalComma, options.fMissing, options.fPlace,
                                     options.fProgress};
    auto content = ReadDelimited(file, delimited, schema);
    if (!content) return content.Error();
    return FinishTable(std::move(*content), options);
}

}  // namespace host
