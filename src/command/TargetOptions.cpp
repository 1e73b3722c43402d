#include "command/Keywords.h"
#include "command/Resolver.h"
#include "command/Words.h"

#include <algorithm>

namespace command {

namespace {

using run::Distribution;
using run::Link;

/// Distributions and links in the order of their words in the keyword table.
constexpr Distribution kDistributions[] = {
    Distribution::kNormal,          Distribution::kBinomial,         Distribution::kPoisson, Distribution::kGamma,
    Distribution::kInverseGaussian, Distribution::kNegativeBinomial, Distribution::kOrdinal, Distribution::kNominal};
constexpr Link kLinks[] = {Link::kIdentity,       Link::kLog,    Link::kLogComplement,
                           Link::kLogit,          Link::kProbit, Link::kComplementaryLogLog,
                           Link::kNegativeLogLog, Link::kPower,  Link::kCauchit};

/// The links a distribution takes, its default first.
const std::vector<Link>& LinksOf(Distribution distribution) {
    static const std::vector<Link> identityFirst{Link::kIdentity, Link::kLog, Link::kPower};
    static const std::vector<Link> logFirst{Link::kLog, Link::kIdentity, Link::kPower};
    static const std::vector<Link> binomial{Link::kLogit,          Link::kProbit,   Link::kComplementaryLogLog,
                                            Link::kNegativeLogLog, Link::kCauchit,  Link::kLog,
                                            Link::kLogComplement,  Link::kIdentity, Link::kPower};
    static const std::vector<Link> ordinal{Link::kLogit, Link::kProbit, Link::kComplementaryLogLog,
                                           Link::kNegativeLogLog, Link::kCauchit};
    static const std::vector<Link> nominal{Link::kLogit};
    switch (distribution) {
        case Distribution::kNormal:
            return identityFirst;
        case Distribution::kBinomial:
            return binomial;
        case Distribution::kOrdinal:
            return ordinal;
        case Distribution::kNominal:
            return nominal;
        default:
            return logFirst;
    }
}

std::string WordOf(const char* parameter, int index) {
    return FindParameterWord(*FindSubcommandWord("TARGET_OPTIONS"), parameter)->fWords[index];
}

void ReadLink(const Subcommand& options, int distribution, run::Target& target) {
    const std::vector<Link>& allowed = LinksOf(target.fDistribution);
    target.fLink = allowed.front();
    const Parameter* parameter = options.Find("LINK");
    if (!parameter) return;
    const int choice = ChoiceOf(options, "LINK", 0);
    const Item& item = parameter->fvItems.front();
    target.fLink = kLinks[choice];
    if (std::find(allowed.begin(), allowed.end(), target.fLink) == allowed.end()) {
        std::vector<std::string> words;
        for (const Link link : allowed)
            words.push_back(
                WordOf("LINK", static_cast<int>(std::find(std::begin(kLinks), std::end(kLinks), link) - kLinks)));
        throw CommandError{"the distribution " + WordOf("DISTRIBUTION", distribution) + " doesn't take the link " +
                               WordOf("LINK", choice) + "; it takes " + JoinOr(words),
                           item.fAt};
    }
    if (item.fKind == Item::Kind::kGroup) {
        target.fLinkPower = item.fvParts[1].fNumber;
        if (target.fLinkPower == 0.0)
            throw CommandError{"a power link of exponent 0 is the LOG link; write that", item.fvParts[1].fAt};
    }
}

void ReadTrials(const Subcommand& options, const TermReader& reader, run::Target& target) {
    const Parameter* trials = options.Find("TRIALS");
    const Parameter* others = options.Find("NONEVENTS");
    if (!trials && !others) return;
    const Parameter* given = trials ? trials : others;
    if (target.fDistribution != Distribution::kBinomial)
        throw CommandError{given->fName + " goes with the BINOMIAL distribution only", given->fAt};
    if (trials && others) throw CommandError{"give either TRIALS or NONEVENTS, not both", others->fAt};
    if (others) {
        target.fNonEventsVar = reader.NumericOf(others);
    } else if (trials->fvItems.front().fKind == Item::Kind::kNumber) {
        target.fTrialsValue = WholeNumberOf(trials, 0, 1, 2000000000);
    } else {
        target.fTrialsVar = reader.NumericOf(trials);
    }
}

}  // namespace

run::Target ReadTarget(const CommandTree& tree, const TermReader& reader, int variable) {
    run::Target target;
    const Subcommand none{"TARGET_OPTIONS", {}, {}};
    const Subcommand* found = tree.Find("TARGET_OPTIONS");
    const Subcommand& options = found ? *found : none;
    const int distribution = ChoiceOf(options, "DISTRIBUTION", 0);
    target.fDistribution = kDistributions[distribution];
    ReadLink(options, distribution, target);
    ReadTrials(options, reader, target);
    if (const Parameter* offset = options.Find("OFFSET")) {
        if (offset->fvItems.front().fKind == Item::Kind::kNumber) {
            target.fOffsetValue = offset->fvItems.front().fNumber;
        } else {
            target.fOffsetVar = reader.NumericOf(offset);
        }
    }
    if (const Parameter* dispersion = options.Find("DISPERSION")) {
        if (target.fDistribution != Distribution::kNegativeBinomial)
            throw CommandError{"DISPERSION goes with the NEGATIVE_BINOMIAL distribution only", dispersion->fAt};
        target.fDispersion = NumberOf(dispersion, 0.0, 0.0, 1e6);
    }
    target.fDescending = ChoiceOf(options, "ORDER", 0) == 1;
    if (const Parameter* reference = options.Find("REFERENCE")) {
        const bool takes = target.fDistribution == Distribution::kNominal ||
                           (target.fDistribution == Distribution::kBinomial && target.IsCategorical());
        if (!takes)
            throw CommandError{"REFERENCE goes with a NOMINAL target or a BINOMIAL one of two categories",
                               reference->fAt};
        const Item& item = reference->fvItems.front();
        if (item.IsWord("FIRST") || item.IsWord("LAST")) {
            target.fReferenceEnd = item.IsWord("FIRST") ? run::ReferenceEnd::kFirst : run::ReferenceEnd::kLast;
        } else {
            target.fReference = item.fText;
        }
    }
    const VariableInfo& info = reader.Variables()[variable];
    if (info.IsText() && !target.IsCategorical())
        throw CommandError{"the target " + info.IsTextSentence() + ", and the distribution " +
                               WordOf("DISTRIBUTION", distribution) + " needs numbers",
                           tree.Find("FIELDS", "TARGET")->fvItems.front().fAt};
    return target;
}

}  // namespace command
