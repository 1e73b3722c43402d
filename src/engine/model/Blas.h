#pragma once

namespace engine {

/// To be called on a thread before it calls the linear algebra library. The first call of a thread holds the library to
/// one thread of its own (others would change the last bits with their number), and makes sure that there is room for
/// the buffer that the library takes for each caller: it would ask for it again and again, for ever, where there is
/// none. Throws std::bad_alloc.
void EnterBlas();

}  // namespace engine
