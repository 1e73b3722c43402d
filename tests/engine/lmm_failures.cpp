// What the machine or the user does to a fit: no memory, records that can't be read again, more of them than can be
// counted, a stop at any moment. Each ends in its status, and leaves nothing that shows estimates.
#include "contracts/EngineAlgorithm.h"
#include "engine/lmm_csv.h"
#include "engine/model/StopScope.h"
#include "engine/model/Workers.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>

namespace engine::testing {
namespace {

/// y = subject + noise over subjects of one size, the noise from a fixed linear generator.
CsvRecords Layout(int subjects, int size) {
    unsigned long state = 11;
    const auto noise = [&] {
        state = state * 6364136223846793005UL + 1442695040888963407UL;
        return static_cast<double>(state >> 40) / (1 << 24) - 0.5;
    };
    std::vector<double> y, s, t, b, x;
    for (int i = 0; i < subjects; ++i) {
        const double level = 3.0 * noise();
        for (int j = 0; j < size; ++j) {
            s.push_back(i);
            t.push_back(j);
            b.push_back((i + 2 * j) % 5);
            x.push_back(noise());
            y.push_back(level + x.back() + noise() + 0.2 * b.back());
        }
    }
    CsvRecords data;
    data.Add("y", y);
    data.Add("s", s, subjects);
    data.Add("t", t, size);
    data.Add("b", b, 5);
    data.Add("x", x);
    return data;
}

ModelSpec Crossed(const CsvRecords& data) {
    ModelSpec spec = Model(data, "y");
    spec.fRandom = {Block(data, {{}}, {"s"}), Block(data, {{}}, {"b"})};
    return spec;
}

ModelSpec Repeated(const CsvRecords& data) {
    ModelSpec spec = Model(data, "y");
    spec.fFixed = {Factors(data, {}, {"x"})};
    spec.fResidual.fType = CovarianceType::kAR1;
    spec.fResidual.fSubjects = {data["s"]};
    spec.fResidual.fRepeated = {data["t"]};
    spec.fDf = DfMethod::kKenwardRoger;
    return spec;
}

TEST(Failures, AStopAtAnyMomentEndsTheFit) {
    CsvRecords data = Layout(12, 6);
    for (const int threads : {1, 2}) {
        for (ModelSpec spec : {Crossed(data), Repeated(data)}) {
            spec.fThreads = threads;
            const RecordView view = data.View(spec);
            int stopAt = 0;
            for (bool whole = false; !whole; stopAt = stopAt < 20 ? stopAt + 1 : stopAt * 5 / 4) {
                int asked = 0;
                spec.fCancelled = [&] { return asked++ >= stopAt; };
                const FitResult fit = FitLmm(spec, view);
                whole = asked <= stopAt;
                if (whole) break;
                EXPECT_EQ(fit.fStatus.fCode, 130032) << stopAt;
                EXPECT_TRUE(fit.fStatus.IsError());
                EXPECT_FALSE(fit.HasEstimates());
            }
            EXPECT_GT(stopAt, 3);
        }
    }
    EXPECT_NO_THROW(StopScope::Check());
}

TEST(Failures, MoreRecordsThanCanBeCounted) {
    const std::array<double, 2> none{};
    ModelSpec spec;
    spec.fDependent = 0;
    spec.fLevels = {0, 0};
    const FitResult fit = FitLmm(spec, {none.data(), std::size_t{1} << 31, 2});
    EXPECT_EQ(fit.fStatus.fCode, 130079);
    EXPECT_TRUE(fit.fStatus.IsError());
    EXPECT_EQ(FitLmm(spec, {none.data(), 0, 2}).fStatus.fCode, 230024);
}

TEST(Failures, DependentRecordsBeyondTheMachine) {
    CsvRecords data = Layout(1, 300000);
    ModelSpec spec = Repeated(data);
    spec.fResidual.fRepeated.clear();
    const FitResult fit = FitLmm(spec, data.View(spec));
    EXPECT_EQ(fit.fStatus.fCode, 130018);
    EXPECT_NE(fit.fStatus.fDetail.find("300000 records depend on one another"), std::string::npos);
}

/// Records that can be read once.
class OnePass : public MultiPassRecordIter {
public:
    bool HasMore() override { return false; }
    Record const* Next() override { return nullptr; }
    int GetFailReason() const override { return 0; }
    int NewPass() override { return 1; }
};

TEST(Failures, SettingsWithoutATargetAndRecordsThatCantBeReadAgain) {
    const MCVarList variables;
    GLMMSettings settings;
    GLMMAlgorithm invalid(settings, variables);
    EXPECT_EQ(invalid.GetStatus().GetErrorCode(), 130009);
    OnePass records;
    EXPECT_EQ(invalid.BuildModel(records, nullptr).GetErrorCode(), 130009);

    settings.SetDependent(0);
    settings.SetInterceptUse(true);
    GLMMAlgorithm algorithm(settings, variables);
    ASSERT_TRUE(algorithm.GetStatus().IsOK());
    const MCStatus status = algorithm.BuildModel(records, nullptr);
    EXPECT_EQ(status.GetErrorCode(), 130089);
    EXPECT_TRUE(status.IsError());
    EXPECT_FALSE(status.GetDetail().empty());
    EXPECT_EQ(algorithm.GetOutputStats(), nullptr);
    EXPECT_FALSE(algorithm.IsModelBuilt());
}

TEST(Failures, AnExceptionLeavesTheCrewUsable) {
    for (const int threads : {1, 3}) {
        Workers workers(threads);
        for (const int bad : {0, 40, 99}) {
            EXPECT_THROW(workers.Run(100,
                                     [&](int chunk) {
                                         if (chunk == bad) throw std::runtime_error("no");
                                     }),
                         std::runtime_error);
        }
        std::vector<int> calls(100, 0);
        workers.Run(100, [&](int chunk) { ++calls[chunk]; });
        EXPECT_EQ(calls, std::vector<int>(100, 1));
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/// Room for so many bytes more than the process has now.
class MemoryLimit {
public:
    explicit MemoryLimit(rlim_t room) {
        getrlimit(RLIMIT_AS, &fBefore);
        std::ifstream statm("/proc/self/statm");
        rlim_t pages = 0;
        statm >> pages;
        const rlimit now{pages * 4096 + room, fBefore.rlim_max};
        setrlimit(RLIMIT_AS, &now);
    }
    ~MemoryLimit() { setrlimit(RLIMIT_AS, &fBefore); }

private:
    rlimit fBefore{};
};

TEST(Failures, MemoryThatRunsOut) {
    CsvRecords data = Layout(4, 2000);
    ModelSpec spec = Repeated(data);
    spec.fThreads = 2;
    const RecordView view = data.View(spec);
    for (const rlim_t room : {rlim_t{1} << 20, rlim_t{100} << 20}) {
        FitResult fit;
        {
            const MemoryLimit limit(room);
            fit = FitLmm(spec, view);
        }
        EXPECT_EQ(fit.fStatus.fCode, 130018);
        EXPECT_EQ(fit.fStatus.fDetail, "There is not enough memory for this model.");
        EXPECT_FALSE(fit.HasEstimates());
    }
}

#endif

}  // namespace
}  // namespace engine::testing
