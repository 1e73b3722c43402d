#pragma once

namespace host {

/// Throws std::bad_alloc if the XML library was refused memory on this thread since the last call: it goes on without
/// what it had no room for. To be called whenever a document has been read or changed.
void CheckXmlMemory();

}  // namespace host
