#pragma once

#include <charconv>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace apptest {

/// A CSV text without quotes, by columns.
class Csv {
public:
    explicit Csv(const std::string& text) {
        std::istringstream lines(text);
        std::string line;
        std::getline(lines, line);
        const std::vector<std::string> names = Fields(line);
        while (std::getline(lines, line)) {
            const std::vector<std::string> fields = Fields(line);
            std::map<std::string, std::string>& row = fRows.emplace_back();
            for (std::size_t i = 0; i < names.size() && i < fields.size(); ++i)
                row[names[i]] = fields[i];
        }
    }

    std::size_t Rows() const { return fRows.size(); }
    const std::map<std::string, std::string>& Row(std::size_t i) const { return fRows[i]; }
    const std::string& Text(std::size_t i, const std::string& column) const { return fRows[i].at(column); }
    /// NaN for an empty field.
    double Number(std::size_t i, const std::string& column) const { return ToNumber(Text(i, column)); }

    static double ToNumber(const std::string& text) {
        double value = std::numeric_limits<double>::quiet_NaN();
        std::from_chars(text.data(), text.data() + text.size(), value);
        return value;
    }

private:
    static std::vector<std::string> Fields(const std::string& line) {
        std::vector<std::string> fields(1);
        for (const char c : line) {
            if (c == ',')
                fields.emplace_back();
            else if (c != '\r')
                fields.back() += c;
        }
        return fields;
    }

    std::vector<std::map<std::string, std::string>> fRows;
};

}  // namespace apptest
