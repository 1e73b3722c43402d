#include "app/Predict.h"

#include "app/CommandSource.h"
#include "app/DataTable.h"
#include "app/ExitCode.h"
#include "app/OutputFiles.h"
#include "app/Predictor.h"
#include "app/Terminal.h"
#include "engine/documents/XmlGuard.h"
#include "engine/seam/StoredModel.h"
#include "host/data/SavedDataWriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace app {

namespace {

/// The text of a model file, no more of it than a model file may have.
std::string ReadModelFile(const std::string& file) {
    if (std::filesystem::is_directory(file)) throw Failure{kFileError, file + ": is a directory, not a model file"};
    std::FILE* stream = std::fopen(file.c_str(), "rb");
    if (!stream) throw Failure{kFileError, file + ": the model file can't be read: " + std::strerror(errno)};
    std::string text;
    std::vector<char> buffer(1 << 16);
    std::size_t got = 0;
    while (text.size() <= engine::kMostDocumentBytes && (got = std::fread(buffer.data(), 1, buffer.size(), stream)) > 0)
        text.append(buffer.data(), got);
    const bool failed = std::ferror(stream) != 0;
    std::fclose(stream);
    if (failed) throw Failure{kFileError, file + ": the model file can't be read to its end"};
    return text;
}

void Tell(const Predictor& predictor) {
    for (const Misfits* misfits : {&predictor.Grave(), &predictor.Light()}) {
        for (const std::string& sentence : misfits->Sentences())
            Remark(sentence);
    }
}

}  // namespace

int Predict(const Options& options) {
    const command::DataWishes wishes = WishesOf(options);
    CheckFiles({}, options.fOutput, wishes.fFile);
    std::string problem;
    const auto model = engine::StoredModel::Read(ReadModelFile(options.fModelFile), problem);
    if (!model) throw Failure{kFileError, options.fModelFile + ": " + problem};
    const std::shared_ptr<host::Table> table = OpenTable(wishes, options.fQuiet);
    Predictor predictor(*model, *table, options.fThreads);
    if (!predictor.Problem().empty()) throw Failure{kFileError, predictor.Problem()};
    predictor.Run();
    if (options.fStrict && !predictor.Grave().Empty())
        throw Failure{kFileError, wishes.fFile + ": does not fit the model: " + predictor.Grave().Sentences().front()};
    if (!options.fQuiet) {
        Tell(predictor);
        if (const std::string lacks = model->Lacks(); !lacks.empty())
            Remark("the model file has no " + lacks +
                   " of predictions with random effects, of which it has too many; --save writes them when the model "
                   "is fitted");
    }
    if (const auto error = host::WriteWithColumns(*table, predictor.Columns(), options.fOutput))
        throw Failure{kFileError, error->Message()};
    return predictor.PredictedAny() ? kFitted : kNotFitted;
}

}  // namespace app
