#include "engine/model/StopScope.h"

namespace engine {

namespace {

thread_local const std::function<bool()>* tAsked = nullptr;

}  // namespace

StopScope::StopScope(const std::function<bool()>& asked) : fOuter(tAsked) {
    tAsked = &asked;
}

StopScope::~StopScope() {
    tAsked = fOuter;
}

void StopScope::Check() {
    if (tAsked != nullptr && *tAsked && (*tAsked)()) throw StopAsked{};
}

}  // namespace engine
