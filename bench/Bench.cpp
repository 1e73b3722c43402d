/// Runs the program on workloads made from fixed seeds and prints a table: seconds for reading the file alone, for the
/// whole run, their ratio, processor seconds of the whole run, iterations and peak memory. Where other work goes on,
/// the processor's seconds are the ones to compare.
///
/// usage: hierfit_bench HIERFIT [--heavy] [--threads N] [NAME...]

#include "bench/Workloads.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Measured {
    double fSeconds = 0.0;
    double fProcessor = 0.0;  ///< user and system, of all threads
    double fMiB = 0.0;
    int fExit = -1;
};

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

/// Runs a command with its standard output in a file.
Measured Run(const std::vector<std::string>& command, const fs::path& output) {
    std::vector<char*> arguments;
    for (const std::string& part : command)
        arguments.push_back(const_cast<char*>(part.c_str()));
    arguments.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDOUT_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    Measured measured;
    measured.fSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    measured.fProcessor = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
    measured.fMiB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    measured.fExit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return measured;
}

/// Best of several runs, since the machine has other work.
Measured Best(const std::vector<std::string>& command, const fs::path& output, int runs) {
    Measured best = Run(command, output);
    for (int i = 1; i < runs; ++i) {
        const Measured next = Run(command, output);
        best.fSeconds = std::min(best.fSeconds, next.fSeconds);
        best.fProcessor = std::min(best.fProcessor, next.fProcessor);
        best.fMiB = std::max(best.fMiB, next.fMiB);
        if (next.fExit != 0) best.fExit = next.fExit;
    }
    return best;
}

int Iterations(const fs::path& output) {
    std::ifstream stream(output);
    const auto document = nlohmann::json::parse(stream, nullptr, false);
    if (document.is_discarded() || document["splits"].empty()) return -1;
    return document["splits"][0]["status"].value("iterations", -1);
}

std::string Aim(const bench::Workload& work) {
    std::string text;
    if (work.fAimSeconds > 0) text += fmt::format("{:g} s", work.fAimSeconds);
    if (work.fAimMiB > 0) text += fmt::format("{}{:g} MiB", text.empty() ? "" : ", ", work.fAimMiB);
    return text.empty() ? "-" : text;
}

void Measure(const bench::Workload& work, const std::string& program, const std::vector<std::string>& extra,
             const fs::path& folder) {
    const fs::path data = folder / (work.fName + ".csv");
    const fs::path output = folder / "out.json";
    work.fMake(data);
    const int runs = work.fHeavy ? 1 : 3;

    const Measured reading = Best({program, "describe", data.string()}, output, runs);
    std::vector<std::string> command{program, "fit"};
    command.insert(command.end(), work.fArguments.begin(), work.fArguments.end());
    command.insert(command.end(), {"--data", data.string()});
    command.insert(command.end(), extra.begin(), extra.end());
    const Measured whole = Best(command, output, runs);

    command.insert(command.end(), {"--format", "json"});
    const int iterations = work.fHeavy || Run(command, output).fExit != 0 ? -1 : Iterations(output);
    fmt::print("| {} | {} | {:.3f} | {:.3f} | {:.1f} | {:.3f} | {} | {:.0f} | {} | {} |\n", work.fName, work.fWhat,
               reading.fSeconds, whole.fSeconds, whole.fSeconds / std::max(reading.fSeconds, 1e-3), whole.fProcessor,
               iterations < 0 ? std::string("-") : std::to_string(iterations), whole.fMiB, Aim(work), whole.fExit);
    std::fflush(stdout);
    fs::remove(data);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || access(argv[1], X_OK) != 0) {
        fmt::print(stderr, "usage: hierfit_bench HIERFIT [--heavy] [--threads N] [NAME...]\n");
        return 2;
    }
    bool heavy = false;
    std::vector<std::string> names;
    std::vector<std::string> extra;
    for (int i = 2; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--heavy") {
            heavy = true;
        } else if (argument == "--threads" && i + 1 < argc) {
            extra = {"--threads", argv[++i]};
        } else {
            names.push_back(argument);
        }
    }
    const fs::path folder = fs::temp_directory_path() / fmt::format("hierfit_bench.{}", getpid());
    fs::create_directories(folder);
    fmt::print(
        "| | workload | reading, s | whole run, s | ratio | processor, s | iterations | peak MiB | aim | exit |\n");
    fmt::print("|---|---|---:|---:|---:|---:|---:|---:|---|---:|\n");
    for (const bench::Workload& work : bench::Workloads()) {
        const bool named = std::find(names.begin(), names.end(), work.fName) != names.end();
        if (named || (names.empty() && (heavy || !work.fHeavy))) Measure(work, argv[1], extra, folder);
    }
    fs::remove_all(folder);
    return 0;
}
