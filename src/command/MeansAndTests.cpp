#include "command/Resolver.h"
#include "command/Words.h"

#include <algorithm>

namespace command {

namespace {

int PositionIn(const std::vector<int>& list, int value) {
    const auto found = std::find(list.begin(), list.end(), value);
    return found == list.end() ? -1 : static_cast<int>(found - list.begin());
}

void ReadTables(const Parameter* tables, TermReader& reader, Means& means) {
    if (!tables || tables->fvItems.empty()) return;
    const Item& item = tables->fvItems.front();
    if (item.IsWord("INTERCEPT")) return;
    const Term term = reader.ReadTerm(item);
    if (!term.fvCovariates.empty())
        throw CommandError{"TABLES: " + reader.Variables()[term.fvCovariates.front().fVariable].fName +
                               " is no factor; hold a covariate at a value with AT",
                           item.fAt};
    for (const Term::Factor& factor : term.fvFactors)
        means.fvFactors.push_back(PositionIn(reader.fvFactors, factor.fVariable));
}

/// The reference level as a value of the compared factor's type.
void ReadReference(const Item& item, const VariableInfo& factor, Means& means) {
    if (item.IsWord("FIRST")) {
        means.fReference = Reference::kFirst;
    } else if (item.IsWord("LAST")) {
        means.fReference = Reference::kLast;
    } else if (factor.IsText()) {
        means.fReference = Reference::kText;
        means.fText = item.fText;
        means.fTextWidth = factor.fWidth;
    } else if (ReadNumber(item.fText, means.fNumber)) {
        means.fReference = Reference::kNumber;
    } else {
        throw CommandError{"REFERENCE: the values of " + factor.fName + " are numbers, " + item.fText + " is none",
                           item.fAt};
    }
    means.fChoice.fFirstIsReference = means.fReference == Reference::kFirst;
    means.fChoice.fReferenceNamed = means.fReference == Reference::kText || means.fReference == Reference::kNumber;
}

}  // namespace

void ReadMeans(const Subcommand& subcommand, TermReader& reader, Means& means) {
    ReadTables(subcommand.Find("TABLES"), reader, means);
    const Parameter* compare = subcommand.Find("COMPARE");
    if (compare) {
        const int variable = reader.VariableOf(compare);
        means.fCompare = PositionIn(means.fvFactors, PositionIn(reader.fvFactors, variable));
        if (PositionIn(reader.fvFactors, variable) < 0 || means.fCompare < 0)
            throw CommandError{"COMPARE: " + reader.Variables()[variable].fName + " is none of the factors of TABLES",
                               compare->fvItems.front().fAt};
    }
    constexpr run::ContrastKind kKinds[] = {run::ContrastKind::kNoContrast, run::ContrastKind::kPairwise,
                                            run::ContrastKind::kDeviation, run::ContrastKind::kSimple};
    const Parameter* contrast = subcommand.Find("CONTRAST");
    means.fChoice.fContrast = kKinds[ChoiceOf(subcommand, "CONTRAST", compare ? 1 : 0)];
    if (means.fChoice.fContrast != run::ContrastKind::kNoContrast && !compare) {
        if (means.fvFactors.size() != 1)
            throw CommandError{"CONTRAST: name the factor to compare with COMPARE", contrast->fAt};
        means.fCompare = 0;
    }
    means.fChoice.fLinkScale = ChoiceOf(subcommand, "SCALE", 0) == 1;
    means.fAdjustment = ChoiceOf(subcommand, "ADJUST", 0) + 1;

    const bool referred = means.fChoice.fContrast == run::ContrastKind::kSimple;
    const Parameter* reference = subcommand.Find("REFERENCE");
    if (reference && !referred) throw CommandError{"REFERENCE goes with CONTRAST=SIMPLE only", reference->fAt};
    if (means.fChoice.fContrast == run::ContrastKind::kDeviation || referred) means.fReference = Reference::kLast;
    if (reference)
        ReadReference(reference->fvItems.front(), reader.Variables()[reader.fvFactors[means.fvFactors[means.fCompare]]],
                      means);
    const Parameter* at = subcommand.Find("AT");
    if (!at) return;
    for (const Item& item : at->fvItems) {
        const int variable = reader.Variable(item.fvParts[0]);
        const int covariate = PositionIn(reader.fvCovariates, variable);
        if (covariate < 0)
            throw CommandError{"AT: " + reader.Variables()[variable].fName + " is no covariate of the model", item.fAt};
        means.fvFixed.push_back({covariate, item.fvParts[1].fNumber, item.fvParts[1].fText});
    }
}

namespace {

/// Coefficients of one part of a row, fixed or random: effect by effect, or all columns in one run.
struct Coefficients {
    bool fAllColumns = false;
    std::vector<std::vector<double>> fvByEffect;  ///< all columns: one entry
};

class TestReader {
public:
    TestReader(TermReader& reader, const Specification& specification) : fReader(reader) {
        if (specification.fIntercept) fvFixed.push_back({Term{}, 0});
        for (const Term& term : specification.fvFixed)
            fvFixed.push_back({term, 0});
        for (std::size_t block = 0; block < specification.fvRandom.size(); ++block)
            for (const Term& term : specification.fvRandom[block].fvEffects)
                fvRandom.push_back({term, static_cast<int>(block) + 1});
    }

    void Read(const std::vector<Item>& items, CustomTest& test) {
        std::vector<Coefficients> fixed, random;
        for (std::size_t next = 0; next < items.size();) {
            fixed.emplace_back();
            random.emplace_back();
            next = ReadPart(items, next, fvFixed, fixed.back());
            if (next < items.size() && items[next].fText == "|") {
                fAt = items[next].fAt;
                next = ReadPart(items, next + 1, fvRandom, random.back());
            }
            if (next < items.size() && items[next].fText != ";")
                throw CommandError{"ROWS: expected ; between rows, found |", items[next].fAt};
            ++next;
        }
        test.fAllColumns = std::any_of(fixed.begin(), fixed.end(), [](const auto& part) { return part.fAllColumns; }) ||
                           std::any_of(random.begin(), random.end(), [](const auto& part) { return part.fAllColumns; });
        test.fvRows.resize(fixed.size());
        Join(fixed, fvFixed.size(), test.fAllColumns, test.fvFixedCounts, test.fvRows);
        Join(random, fvRandom.size(), test.fAllColumns, test.fvRandomCounts, test.fvRows);
    }

private:
    struct Effect {
        Term fTerm;
        int fBlock;
    };

    std::size_t ReadPart(const std::vector<Item>& items, std::size_t next, const std::vector<Effect>& effects,
                         Coefficients& part) {
        part.fvByEffect.resize(effects.size());
        bool any = false;
        for (; next < items.size() && items[next].fKind != Item::Kind::kMark; ++next) {
            const Item& item = items[next];
            if (item.fKind != Item::Kind::kGroup)
                throw CommandError{
                    "ROWS: expected an effect and its coefficients, as in a(1 -1), found " + PrintItem(item), item.fAt};
            const std::vector<double> values = Values(item);
            if (item.fvParts.front().IsWord("ALL")) {
                if (any) throw CommandError{"ROWS: ALL stands beside other effects", item.fAt};
                part.fAllColumns = true;
                part.fvByEffect.assign(1, values);
            } else {
                if (part.fAllColumns) throw CommandError{"ROWS: ALL stands beside other effects", item.fAt};
                std::vector<double>& place = part.fvByEffect[EffectOf(item.fvParts.front(), effects)];
                if (!place.empty())
                    throw CommandError{"ROWS: the effect " + PrintItem(item.fvParts.front()) + " stands twice in a row",
                                       item.fAt};
                place = values;
            }
            any = true;
        }
        return next;
    }

    static std::vector<double> Values(const Item& item) {
        std::vector<double> values;
        for (std::size_t i = 1; i < item.fvParts.size(); ++i) {
            if (item.fvParts[i].fKind != Item::Kind::kNumber)
                throw CommandError{"ROWS: expected a coefficient, found " + PrintItem(item.fvParts[i]),
                                   item.fvParts[i].fAt};
            values.push_back(item.fvParts[i].fNumber);
        }
        return values;
    }

    /// A random effect that several blocks hold is told apart by @ and the block's number behind its first name.
    std::size_t EffectOf(const Item& item, const std::vector<Effect>& effects) {
        int block = item.fBlock;
        for (const Item* head = &item; !head->fvParts.empty(); block = head->fBlock)
            head = &head->fvParts.front();
        const Term term = fReader.ReadTerm(item);
        std::vector<std::size_t> fits;
        for (std::size_t i = 0; i < effects.size(); ++i)
            if (effects[i].fTerm.SameAs(term) && (block == 0 || effects[i].fBlock == block)) fits.push_back(i);
        if (fits.size() == 1) return fits.front();
        const std::string name = TermText(term, fReader.Variables());
        throw CommandError{fits.empty()
                               ? "ROWS: the model has no such effect: " + name
                               : "ROWS: several random blocks hold " + name + "; write " + name + "@1 for the first",
                           item.fAt};
    }

    /// Brings all rows to the same counts, with zeros behind the shorter ones, and puts the values behind each row's.
    void Join(const std::vector<Coefficients>& parts, std::size_t effects, bool allColumns, std::vector<int>& counts,
              std::vector<std::vector<double>>& rows) const {
        const std::size_t slots = allColumns ? 1 : effects;
        counts.assign(slots, 0);
        for (const Coefficients& part : parts) {
            const bool empty = std::all_of(part.fvByEffect.begin(), part.fvByEffect.end(),
                                           [](const auto& values) { return values.empty(); });
            if (allColumns && !part.fAllColumns && !empty)
                throw CommandError{"ROWS: ALL must be used in all rows of a test, or in none", fAt};
            for (std::size_t i = 0; i < std::min(slots, part.fvByEffect.size()); ++i)
                counts[i] = std::max(counts[i], static_cast<int>(part.fvByEffect[i].size()));
        }
        for (std::size_t r = 0; r < parts.size(); ++r)
            for (std::size_t i = 0; i < slots; ++i) {
                std::vector<double> values =
                    i < parts[r].fvByEffect.size() ? parts[r].fvByEffect[i] : std::vector<double>();
                values.resize(counts[i], 0.0);
                rows[r].insert(rows[r].end(), values.begin(), values.end());
            }
    }

    TermReader& fReader;
    std::vector<Effect> fvFixed;
    std::vector<Effect> fvRandom;
    Position fAt;
};

}  // namespace

void ReadTest(const Subcommand& subcommand, TermReader& reader, const Specification& specification, CustomTest& test) {
    const Parameter* rows = subcommand.Find("ROWS");
    if (!rows) throw CommandError{"TEST has no ROWS of coefficients", subcommand.fAt};
    if (!specification.fIntercept && specification.fvFixed.empty())
        throw CommandError{"TEST needs a model with fixed effects", subcommand.fAt};
    if (const Parameter* label = subcommand.Find("LABEL")) test.fLabel = label->fvItems.front().fText;
    TestReader(reader, specification).Read(rows->fvItems, test);
    const Parameter* k = subcommand.Find("K");
    if (!k) return;
    for (const Item& item : k->fvItems)
        test.fvK.push_back(item.fNumber);
    if (test.fvK.size() != test.fvRows.size())
        throw CommandError{"K: expected one value for each of the " + std::to_string(test.fvRows.size()) +
                               " rows, found " + std::to_string(test.fvK.size()),
                           k->fAt};
}

}  // namespace command
