#pragma once

#include <string>
#include <string_view>

namespace engine {

/// The most bytes and tags that a model document may have, and the deepest nesting.
constexpr std::size_t kMostDocumentBytes = std::size_t{128} << 20;
constexpr int kMostDocumentTags = 4000000;
constexpr int kMostDocumentDepth = 100;

/// Why a text is refused before any tree is built of it, in memory that doesn't grow; empty when it is not.
std::string RefuseDocument(std::string_view text);

}  // namespace engine
