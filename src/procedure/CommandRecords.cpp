#include "procedure/CommandRecords.h"

#include "contracts/HostData.h"
#include "procedure/MixDriver.h"

#include <array>
#include <cstring>

namespace {

CmnMix_map* gpCmnMix = nullptr;
CmaMix_map* gpCmaMix = nullptr;

template <class T>
T Read(const void* record, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof value);
    return value;
}

}  // namespace

void EXPOSEMIX(CmnMix_map* slots, CmaMix_map* texts) {
    gpCmnMix = slots;
    gpCmaMix = texts;
}

CmnMix_map* GetCmnMixRecord() {
    return gpCmnMix;
}

CmaMix_map* GetCmaMixRecord() {
    return gpCmaMix;
}

double DoubleSlot(std::size_t offset) {
    return Read<double>(gpCmnMix, offset);
}

long long IntSlot(std::size_t offset) {
    return Read<long long>(gpCmnMix, offset);
}

int LowSlot(std::size_t offset) {
    return Read<int>(gpCmnMix, offset);
}

std::string TextField(std::size_t offset) {
    std::array<char, texts::kFieldLength + 1> buffer{};
    std::memcpy(buffer.data(), reinterpret_cast<const char*>(gpCmaMix) + offset, texts::kFieldLength);
    return QVTAMBstrtrim_A(buffer.data());
}
