#include "contracts/HostOutput.h"
#include "contracts/Parser.h"
#include "host/output/Pattern.h"
#include "host/strings/Catalogue.h"

#include <algorithm>
#include <cstring>

ParserMessage::ParserMessage() = default;

void ParserMessage::SetCommandName(const std::string& name) {
    fCommandName = name;
}

void ParserMessage::SetProcedureTitle(const std::string& title) {
    fProcedureTitle = title;
}

std::string ParserMessage::GetTranslatedText(const std::string& key) const {
    return host::Catalogue::Current().Text(fProcedureTitle, key);
}

std::string ParserMessage::GetTranslatedText(const std::string& key, const std::vector<std::string>& arguments) const {
    return host::FillPattern(GetTranslatedText(key), arguments);
}

void ParserMessage::GenericError(const std::string& key) const {
    BpError(BpString(GetTranslatedText(key, {fCommandName}), false), kShowAlways, kLevelError);
}

void ParserMessage::ParamNeedParamInSubCom(const std::string& needed, const std::string& given,
                                           const std::string& subCommand) const {
    const std::string text = GetTranslatedText("kParamNeedParamInSubCom", {needed, given, subCommand});
    BpError(BpString(text, false), kShowAlways, kLevelError);
}

void ERRTXN(long number, char* buffer) {
    constexpr std::size_t kSize = 256;
    const std::string text = host::Catalogue::Current().Message(number);
    std::memset(buffer, ' ', kSize);
    std::memcpy(buffer, text.data(), std::min(text.size(), kSize));
}
