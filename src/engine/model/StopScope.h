#pragma once

#include <functional>

namespace engine {

/// Thrown by StopScope::Check when the user has asked to stop; FitLmm and FitGlmm turn it into their status.
struct StopAsked {};

/// For as long as it lives, long work of this thread asks the function whether to stop: Workers::Run before each chunk
/// that the calling thread takes. An empty function is never asked. Scopes nest, the innermost counts.
class StopScope {
public:
    explicit StopScope(const std::function<bool()>& asked);
    ~StopScope();
    StopScope(const StopScope&) = delete;
    StopScope& operator=(const StopScope&) = delete;

    /// Throws StopAsked when the answer of this thread's scope is yes.
    static void Check();

private:
    const std::function<bool()>* fOuter;
};

}  // namespace engine
