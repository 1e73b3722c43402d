#include "contracts/JsonBridge.h"

#include "host/documents/TableDescription.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

/// A node's handle is the node's address in its document.
const json& NodeOf(const _jobject* node) {
    return *reinterpret_cast<const json*>(node);
}

_jobject* HandleOf(const json& node) {
    return reinterpret_cast<_jobject*>(const_cast<json*>(&node));
}

}  // namespace

struct JNIJSONObject::Impl {
    json fTop;
};

JNIJSONObject::JNIJSONObject(const char* text) : fpImpl(std::make_unique<Impl>()) {
    fpImpl->fTop = json::parse(text, nullptr, false);
}

JNIJSONObject::~JNIJSONObject() = default;

bool JNIJSONObject::isGood() const {
    return !fpImpl->fTop.is_discarded();
}

_jobject* JNIJSONObject::getTop() const {
    return isGood() ? HandleOf(fpImpl->fTop) : nullptr;
}

_jobject* JNIJSONObject::getByPath(_jobject* node, const std::string& path) const {
    if (!node) return nullptr;
    const json* at = &NodeOf(node);
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find('.', begin), path.size());
        const auto found = at->is_object() ? at->find(path.substr(begin, end - begin)) : at->end();
        if (found == at->end() || found->is_null()) return nullptr;
        at = &*found;
        begin = end + 1;
    }
    return HandleOf(*at);
}

bool JNIJSONArtifact::isJSONArray(_jobject* node) {
    return node && NodeOf(node).is_array();
}

int JNIJSONArray::size() const {
    return JNIJSONArtifact::isJSONArray(fpNode) ? static_cast<int>(NodeOf(fpNode).size()) : 0;
}

_jobject* JNIJSONArray::get(int index) const {
    return index >= 0 && index < size() ? HandleOf(NodeOf(fpNode)[index]) : nullptr;
}

jsonPivot::jsonPivot(JNIJSONObject&, _jobject* const& table, ProcedureDataSource const* source, dataDictionary const&)
    : fpTable(table), fpSource(source) {}

bool jsonPivot::createPivotTable(BpHeading* heading, const std::string& title, bool translateTitle,
                                 const std::string& subType) {
    if (!fpTable) return false;
    const auto description = host::TableDescription::Read(NodeOf(fpTable), fpSource, fTranslate);
    if (!description) return false;
    BpPivotTable table = heading->PivotTable(BpString(title, translateTitle), BpString(subType, true), fSupportSplits);
    description->Write(table);
    return true;
}
