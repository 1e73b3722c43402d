#include "host/documents/XmlMemory.h"

#include <cstdlib>
#include <new>
#include <pugixml.hpp>
#include <utility>

namespace host {

namespace {

thread_local bool tRefused = false;

void* Allocate(std::size_t size) {
    void* const memory = std::malloc(size);
    tRefused |= memory == nullptr;
    return memory;
}

[[maybe_unused]] const bool watched = (pugi::set_memory_management_functions(Allocate, std::free), true);

}  // namespace

void CheckXmlMemory() {
    if (std::exchange(tRefused, false)) throw std::bad_alloc();
}

}  // namespace host
