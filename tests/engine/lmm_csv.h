#pragma once

#include "engine/lmm/LmmFit.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace engine::testing {

/// A data file as the engine sees one: rows of doubles, text columns and those named categorical as codes that count
/// from 0 in ascending order.
class CsvRecords {
public:
    /// No records yet: the first variable that is added makes them.
    CsvRecords() = default;
    CsvRecords(const std::string& path, const std::vector<std::string>& categorical) {
        std::ifstream file(path);
        if (!file) throw std::runtime_error("no file " + path);
        std::string line;
        std::getline(file, line);
        fNames = Cells(line);
        std::vector<std::vector<std::string>> rows;
        while (std::getline(file, line)) {
            if (!line.empty()) rows.push_back(Cells(line));
        }
        fValues.resize(rows.size() * fNames.size());
        for (std::size_t v = 0; v < fNames.size(); ++v)
            ReadColumn(rows, v, std::find(categorical.begin(), categorical.end(), fNames[v]) != categorical.end());
    }

    int operator[](const std::string& name) const {
        const auto at = std::find(fNames.begin(), fNames.end(), name);
        if (at == fNames.end()) throw std::runtime_error("no variable " + name);
        return static_cast<int>(at - fNames.begin());
    }
    const std::vector<int>& Levels() const { return fLevels; }
    const std::vector<std::string>& LevelNames(const std::string& name) const {
        return fLevelNames[static_cast<std::size_t>((*this)[name])];
    }
    std::size_t Count() const { return fValues.size() / fNames.size(); }
    double& At(std::size_t row, const std::string& name) { return fValues[row * fNames.size() + (*this)[name]]; }

    /// Adds a variable; levels 0 for a numeric one.
    void Add(const std::string& name, const std::vector<double>& column, int levels = 0) {
        const std::size_t width = fNames.size();
        std::vector<double> wider;
        for (std::size_t i = 0; i < column.size(); ++i) {
            wider.insert(wider.end(), fValues.begin() + i * width, fValues.begin() + (i + 1) * width);
            wider.push_back(column[i]);
        }
        fValues = std::move(wider);
        fNames.push_back(name);
        fLevels.push_back(levels);
        fLevelNames.emplace_back();
    }
    std::vector<double> Column(const std::string& name) const {
        std::vector<double> column;
        for (std::size_t i = 0; i < Count(); ++i)
            column.push_back(fValues[i * fNames.size() + (*this)[name]]);
        return column;
    }

    /// Sorts as the model wants it and shows the rows.
    RecordView View(const ModelSpec& spec) {
        const std::size_t width = fNames.size();
        const std::vector<int> order = SortVariables(spec);
        std::vector<std::size_t> index(Count());
        for (std::size_t i = 0; i < index.size(); ++i)
            index[i] = i;
        std::stable_sort(index.begin(), index.end(), [&](std::size_t a, std::size_t b) {
            for (int v : order) {
                if (fValues[a * width + v] != fValues[b * width + v])
                    return fValues[a * width + v] < fValues[b * width + v];
            }
            return false;
        });
        std::vector<double> sorted;
        for (std::size_t i : index)
            sorted.insert(sorted.end(), fValues.begin() + i * width, fValues.begin() + (i + 1) * width);
        fSorted = std::move(sorted);
        return {fSorted.data(), Count(), width};
    }

private:
    static std::vector<std::string> Cells(const std::string& line) {
        std::vector<std::string> cells;
        std::stringstream stream(line);
        std::string cell;
        while (std::getline(stream, cell, ',')) {
            if (!cell.empty() && cell.back() == '\r') cell.pop_back();
            cells.push_back(cell);
        }
        return cells;
    }
    static bool Number(const std::string& text, double* value) {
        const auto end = std::from_chars(text.data(), text.data() + text.size(), *value);
        return end.ec == std::errc() && end.ptr == text.data() + text.size();
    }
    void ReadColumn(const std::vector<std::vector<std::string>>& rows, std::size_t v, bool categorical) {
        const std::size_t width = fNames.size();
        bool numeric = true;
        for (std::size_t i = 0; i < rows.size() && numeric; ++i)
            numeric = Number(rows[i][v], &fValues[i * width + v]);
        if (numeric && !categorical) {
            fLevels.push_back(0);
            fLevelNames.emplace_back();
            return;
        }
        std::vector<std::string> names;
        for (const auto& row : rows)
            names.push_back(row[v]);
        std::sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
            double x, y;
            return numeric && Number(a, &x) && Number(b, &y) ? x < y : a < b;
        });
        names.erase(std::unique(names.begin(), names.end()), names.end());
        std::map<std::string, int> codes;
        for (std::size_t c = 0; c < names.size(); ++c)
            codes[names[c]] = static_cast<int>(c);
        for (std::size_t i = 0; i < rows.size(); ++i)
            fValues[i * width + v] = codes[rows[i][v]];
        fLevels.push_back(static_cast<int>(names.size()));
        fLevelNames.push_back(names);
    }

    std::vector<std::string> fNames;
    std::vector<int> fLevels;
    std::vector<std::vector<std::string>> fLevelNames;
    std::vector<double> fValues;
    std::vector<double> fSorted;
};

inline ModelEffect Factors(const CsvRecords& data, const std::vector<std::string>& names,
                           const std::vector<std::string>& covariates = {}) {
    ModelEffect effect;
    for (const auto& name : names)
        effect.fFactors.push_back(data[name]);
    for (const auto& name : covariates)
        effect.fCovariates.push_back({data[name], 1});
    return effect;
}

inline RandomBlock Block(const CsvRecords& data, std::vector<ModelEffect> effects,
                         const std::vector<std::string>& subjects, CovarianceType type = CovarianceType::kVC) {
    RandomBlock block;
    block.fEffects = std::move(effects);
    for (const auto& name : subjects)
        block.fSubjects.push_back(data[name]);
    block.fType = type;
    return block;
}

inline ModelSpec Model(const CsvRecords& data, const std::string& target) {
    ModelSpec spec;
    spec.fDependent = data[target];
    spec.fLevels = data.Levels();
    return spec;
}

}  // namespace engine::testing
