#include "procedure/DebugText.h"

#include "contracts/EngineDisplay.h"
#include "contracts/HostData.h"

#include <cassert>
#include <sstream>

namespace {

constexpr std::size_t kPiece = 4096;

/// The engine's stream, swapped for the life of the value.
class EngineStreamSwap {
public:
    explicit EngineStreamSwap(std::ostream& stream) : pSaveCompStream(MCDisplay::GetOutStream()) {
        assert(pSaveCompStream != nullptr);
        MCDisplay::SetOutStream(&stream);
    }
    ~EngineStreamSwap() { MCDisplay::SetOutStream(pSaveCompStream); }
    EngineStreamSwap(const EngineStreamSwap&) = delete;
    EngineStreamSwap& operator=(const EngineStreamSwap&) = delete;

private:
    std::ostream* pSaveCompStream;
};

}  // namespace

void SendDebugPieces(const std::string& text) {
    for (std::size_t at = 0; at < text.size(); at += kPiece)
        BP_ToFront(0, BP_Character(text.substr(at, kPiece).c_str()));
}

std::string CatchEngineText(const std::function<void()>& display) {
    std::ostringstream stream;
    const EngineStreamSwap swap(stream);
    display();
    return stream.str();
}

void DumpEngineText(const std::function<void()>& display) {
    const std::string text = CatchEngineText(display);
    BP_ToFront(1, BP_Character(""));
    SendDebugPieces(text);
}

void DumpStreamText(const std::function<void(std::ostream&)>& display) {
    std::ostringstream stream;
    display(stream);
    BP_ToFront(1, BP_Character(""));
    SendDebugPieces(stream.str());
}
