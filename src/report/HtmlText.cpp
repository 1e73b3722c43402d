#include "report/HtmlText.h"

#include "report/DisplayText.h"

namespace report {

std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : Clean(text)) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string ScriptSafe(std::string_view json) {
    std::string safe;
    for (const char c : json) {
        // "<", ">" and "&" stand only inside of strings, where the escape means the same.
        if (c == '<') {
            safe += "\\u003c";
        } else if (c == '>') {
            safe += "\\u003e";
        } else if (c == '&') {
            safe += "\\u0026";
        } else {
            safe += c;
        }
    }
    return safe;
}

}  // namespace report
