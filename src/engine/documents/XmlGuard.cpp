#include "engine/documents/XmlGuard.h"

namespace engine {

std::string RefuseDocument(std::string_view text) {
    if (text.size() > kMostDocumentBytes) {
        return "has more than " + std::to_string(kMostDocumentBytes >> 20) + " MiB, more than any model file";
    }
    int depth = 0;
    int tags = 0;
    for (std::size_t i = text.find('<'); i < text.size(); i = text.find('<', i + 1)) {
        if (++tags > kMostDocumentTags) return "has more elements than any model file";
        if (i + 1 == text.size()) break;
        const char next = text[i + 1];
        if (next == '/') {
            --depth;
        } else if (next != '!' && next != '?') {
            const std::size_t end = text.find('>', i);
            if (end != std::string_view::npos && text[end - 1] != '/' && ++depth > kMostDocumentDepth) {
                return "is nested more deeply than any model file";
            }
        }
    }
    return {};
}

}  // namespace engine
