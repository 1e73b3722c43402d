// Fits the sleep study of Belenky et al. (2003) to data in memory and reads results as values.
// sleep_study DATA.csv

#include <cmath>
#include <cstdio>
#include <fstream>
#include <hierfit/hierfit.h>
#include <sstream>

namespace {

// Columns reaction, days, subject, without quotes.
hierfit::Data ReadStudy(const char* file) {
    std::vector<double> reaction, days;
    std::vector<std::string> subject;
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    while (std::getline(stream, line)) {
        std::istringstream fields(line);
        std::string r, d, s;
        std::getline(fields, r, ',');
        std::getline(fields, d, ',');
        std::getline(fields, s, ',');
        reaction.push_back(std::stod(r));
        days.push_back(std::stod(d));
        subject.push_back(s);
    }
    return hierfit::Data().Numbers("reaction", reaction).Numbers("days", days).Texts("subject", subject);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: sleep_study DATA.csv\n"), 2;
    const hierfit::Data data = ReadStudy(argv[1]);
    hierfit::Options options;
    options.fTexts = {{"df", "kenward-roger"}, {"scores", "pred"}};
    const auto fit = hierfit::Fit(data, "reaction ~ days + (days | subject)", options);
    if (!fit) return std::fprintf(stderr, "sleep_study: %s\n", fit.Error().fText.c_str()), 1;

    const hierfit::Split& model = fit->Only();
    std::printf("-2 REML log likelihood %.3f\n", model.fFigures.fMinus2LL);
    for (const hierfit::FixedRow& row : model.fFigures.fFixed)
        std::printf("%-12s %8.3f  s.e. %6.3f  df %5.2f\n", row.fTerm.c_str(), row.fEstimate, row.fStdError, row.fDf);
    for (const hierfit::CovarianceRow& row : model.fFigures.fCovariance)
        std::printf("%-12s %8.3f\n", row.fParameter.c_str(), row.fEstimate);
    std::printf("first record: %s %.3f\n", fit->fScores.front().fName.c_str(), fit->fScores.front().fNumbers.front());

    // The fitted model is a text that can be kept; it predicts for people who were in the study, and for others.
    const auto later =
        hierfit::Predict(model.fModel, hierfit::Data().Numbers("days", {12, 12}).Texts("subject", {"308", "somebody"}));
    if (!later) return std::fprintf(stderr, "sleep_study: %s\n", later.Error().fText.c_str()), 1;
    for (const hierfit::Column& column : later->fColumns)
        if (column.fName == "PRED_1") std::printf("day 12: %.1f and %.1f\n", column.fNumbers[0], column.fNumbers[1]);

    // A mistake comes back as a value too.
    const auto mistaken = hierfit::Fit(data, "reaction ~ day");
    std::printf("mistake: %s\n", mistaken ? "none" : mistaken.Error().fText.c_str());
    return 0;
}
