#pragma once

#include "engine/model/Workers.h"

namespace engine {

/// crew->Run, or all chunks one after the other without a crew.
inline void Share(Workers* crew, int chunks, const std::function<void(int)>& work) {
    if (crew != nullptr) {
        crew->Run(chunks, work);
        return;
    }
    for (int chunk = 0; chunk < chunks; ++chunk)
        work(chunk);
}

}  // namespace engine
