#include "contracts/CustomProcedure.h"
#include "host/documents/XmlMemory.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <pugixml.hpp>
#include <string_view>

/// Access to XML documents. The parser expands no entities that a document declares; documents that are larger or
/// nested more deeply than any that we write are refused before or right after they are parsed.

namespace {

constexpr std::size_t kMostBytes = std::size_t(512) << 20;
constexpr int kMostDepth = 200;

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// Depth of a text's elements without recursion and without a parser: what counts is the greatest number of tags open
/// at once, so that a hostile text is refused before any tree is built.
bool NestsTooDeeply(std::string_view text) {
    int depth = 0;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != '<') continue;
        const char next = text[i + 1];
        if (next == '/') {
            --depth;
        } else if (next != '!' && next != '?') {
            const std::size_t end = text.find('>', i);
            if (end != std::string_view::npos && text[end - 1] != '/' && ++depth > kMostDepth) return true;
        }
    }
    return false;
}

}  // namespace

struct SDOMXMLWrapper::Impl {
    std::shared_ptr<pugi::xml_document> fpDocument;
    pugi::xml_node fNode;
};

struct SDOMXMLIterator::Impl {
    std::shared_ptr<pugi::xml_document> fpDocument;
    pugi::xml_node fNext;
    std::string fName;
};

SDOMXMLWrapper::SDOMXMLWrapper() : fpImpl(std::make_shared<Impl>()) {}
SDOMXMLWrapper::~SDOMXMLWrapper() = default;
SDOMXMLWrapper::SDOMXMLWrapper(const SDOMXMLWrapper& other) : fpImpl(std::make_shared<Impl>(*other.fpImpl)) {}
SDOMXMLWrapper& SDOMXMLWrapper::operator=(const SDOMXMLWrapper& other) {
    if (this != &other) *fpImpl = *other.fpImpl;
    return *this;
}

SDOMXMLWrapper* SDOMXMLWrapper::LoadFromString(const std::string& text) {
    *fpImpl = Impl();
    if (text.size() > kMostBytes || NestsTooDeeply(text)) return nullptr;
    auto document = std::make_shared<pugi::xml_document>();
    const bool whole = document->load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    host::CheckXmlMemory();
    if (!whole) return nullptr;
    fpImpl->fNode = document->document_element();
    fpImpl->fpDocument = std::move(document);
    return fpImpl->fNode ? this : nullptr;
}

bool SDOMXMLWrapper::GetFirstElement(const std::string& name, SDOMXMLWrapper& element, bool /*childrenOnly*/) const {
    pugi::xml_node node = fpImpl->fNode;
    std::size_t start = 0;
    while (node && start <= name.size()) {
        const std::size_t end = std::min(name.find('/', start), name.size());
        node = node.child(name.substr(start, end - start).c_str());
        start = end + 1;
    }
    if (!node) return false;
    const auto document = fpImpl->fpDocument;
    element.fpImpl->fpDocument = document;
    element.fpImpl->fNode = node;
    return true;
}

bool SDOMXMLWrapper::GetElementIterator(const std::string& name, SDOMXMLIterator& iterator,
                                        bool /*childrenOnly*/) const {
    const pugi::xml_node first = fpImpl->fNode.child(name.c_str());
    *iterator.fpImpl = {fpImpl->fpDocument, first, name};
    return static_cast<bool>(first);
}

bool SDOMXMLWrapper::GetAttribute(const std::string& name, std::string& text) const {
    const pugi::xml_attribute attribute = fpImpl->fNode.attribute(name.c_str());
    text = attribute.value();
    return static_cast<bool>(attribute);
}

/// Tokens are separated by white space; a token in double quotes may hold white space, and \" a quote.
bool SDOMXMLWrapper::GetSimpleArray(std::vector<std::string>& tokens) const {
    tokens.clear();
    const std::string_view text = fpImpl->fNode.text().get();
    for (std::size_t i = 0; i < text.size();) {
        if (IsSpace(text[i])) {
            ++i;
            continue;
        }
        std::string& token = tokens.emplace_back();
        if (text[i] != '"') {
            while (i < text.size() && !IsSpace(text[i]))
                token += text[i++];
            continue;
        }
        for (++i; i < text.size() && text[i] != '"'; ++i) {
            if (text[i] == '\\' && i + 1 < text.size()) ++i;
            token += text[i];
        }
        if (i >= text.size()) return false;
        ++i;
    }
    return static_cast<bool>(fpImpl->fNode);
}

SDOMXMLIterator::SDOMXMLIterator() : fpImpl(std::make_unique<Impl>()) {}
SDOMXMLIterator::~SDOMXMLIterator() = default;

bool SDOMXMLIterator::Next(SDOMXMLWrapper& element) {
    if (!fpImpl->fNext) return false;
    element.fpImpl->fpDocument = fpImpl->fpDocument;
    element.fpImpl->fNode = fpImpl->fNext;
    fpImpl->fNext = fpImpl->fNext.next_sibling(fpImpl->fName.c_str());
    return true;
}

int String2Integer(const std::string& text) {
    int value = 0;
    const char* begin = text.data();
    const char* end = begin + text.size();
    while (begin != end && (IsSpace(*begin) || *begin == '+'))
        ++begin;
    const auto result = std::from_chars(begin, end, value);
    if (result.ec == std::errc::result_out_of_range)
        return *begin == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    return value;
}

double String2Double(const std::string& text) {
    double value = 0.0;
    const char* begin = text.data();
    const char* end = begin + text.size();
    while (begin != end && (IsSpace(*begin) || *begin == '+'))
        ++begin;
    std::from_chars(begin, end, value);
    return value;
}

int Roman2Integer(const std::string& text) {
    constexpr std::string_view kDigits = "IVXLCDM";
    constexpr int kValues[] = {1, 5, 10, 50, 100, 500, 1000};
    int total = 0;
    int last = 0;
    for (auto c = text.rbegin(); c != text.rend(); ++c) {
        const std::size_t digit = kDigits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(*c))));
        if (digit == std::string_view::npos) return 0;
        total += kValues[digit] < last ? -kValues[digit] : kValues[digit];
        last = std::max(last, kValues[digit]);
    }
    return total;
}
