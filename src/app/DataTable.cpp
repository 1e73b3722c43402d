#include "app/DataTable.h"

#include "app/CommandSource.h"
#include "app/ExitCode.h"
#include "app/Terminal.h"
#include "host/data/DataFile.h"

namespace app {

std::shared_ptr<host::Table> OpenTable(const command::DataWishes& wishes, bool quiet) {
    if (wishes.fFile.empty()) throw Failure{kWrongUse, "no data are named; give --data FILE or /DATA FILE='...'"};
    host::DataOptions options = DataOptionsOf(wishes);
    Progress progress(!quiet);
    options.fProgress = [&](double share) { progress.Show({.fPhase = "reading", .fShare = share}); };
    host::Outcome<std::shared_ptr<host::Table>> table = host::OpenDataFile(wishes.fFile, options);
    if (!table) throw Failure{kFileError, table.Error().Message()};
    return *table;
}

}  // namespace app
