#pragma once

#include "host/data/DataError.h"
#include "host/data/Table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace host {

/// A condition that selects rows:
///
///     condition = both { "or" both }            also written | and ||
///     both      = single { "and" single }       also written & and &&
///     single    = "not" single | compared       also written !
///     compared  = sum [ ( = | == | != | <> | < | <= | > | >= ) sum | [ "not" ] "in" "(" value { "," value } ")" ]
///               | "missing" "(" name ")"
///     sum       = product { ( + | - ) product }
///     product   = factor { ( * | / ) factor }
///     factor    = number | 'text' | "text" | name | `name` | "-" factor | "(" condition ")"
///
/// For example: age >= 10 and sex == 'F'. Words are read in lower or upper case, names as they are. A comparison with a
/// missing value (user-missing too) is neither true nor false; a row is selected when the condition is true. Texts are
/// compared by their bytes.
class Filter {
public:
    /// Reads a condition on a table's variables. Errors name the place in the condition.
    static Outcome<std::shared_ptr<const Filter>> Parse(const std::string& text, const TableContent& content);

    /// Per row of a block: 1 if it is selected, else 0.
    void Select(const TableContent& content, std::size_t block, std::size_t count,
                std::vector<std::uint8_t>& selected) const;

    struct Node;
    explicit Filter(std::unique_ptr<const Node> root);
    ~Filter();

private:
    std::unique_ptr<const Node> fRoot;
};

}  // namespace host
