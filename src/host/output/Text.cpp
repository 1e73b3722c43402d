#include "host/output/Text.h"

#include "host/output/FigureText.h"
#include "host/output/Pattern.h"

#include <fmt/format.h>

namespace output {

namespace {

struct StringNode : TextNode {
    StringNode(const std::string& text, bool translate) : fText(text), fTranslate(translate) {}
    std::string Show(const host::Catalogue& strings) const override { return fTranslate ? strings.Text(fText) : fText; }
    std::string Identity() const override { return (fTranslate ? "k:" : "t:") + fText; }

    std::string fText;
    bool fTranslate;
};

struct NumberNode : TextNode {
    NumberNode(double value, const BpFormatSpec& format) : fFigure{value, format} {}
    std::string Show(const host::Catalogue&) const override {
        return host::FigureText(fFigure.fValue, fFigure.fFormat);
    }
    std::string Identity() const override { return fmt::format("n:{}", fFigure.fValue); }
    const Figure* AsFigure() const override { return &fFigure; }

    Figure fFigure;
};

struct ValueNode : TextNode {
    ValueNode(const std::string& text, const std::string& value, std::shared_ptr<Figure> figure)
        : fText(text), fValue(value), fpFigure(std::move(figure)) {}
    std::string Show(const host::Catalogue&) const override { return fText; }
    std::string Identity() const override { return "v:" + fValue; }
    const Figure* AsFigure() const override { return fpFigure.get(); }

    std::string fText;
    std::string fValue;
    std::shared_ptr<Figure> fpFigure;
};

}  // namespace

std::shared_ptr<TextNode> MakeString(const std::string& text, bool translate) {
    return std::make_shared<StringNode>(text, translate);
}

std::shared_ptr<TextNode> MakeNumber(double value, const BpFormatSpec& format) {
    return std::make_shared<NumberNode>(value, format);
}

std::shared_ptr<TextNode> MakeValue(const std::string& text, const std::string& value, std::shared_ptr<Figure> figure) {
    return std::make_shared<ValueNode>(text, value, std::move(figure));
}

std::string CompositeNode::Show(const host::Catalogue& strings) const {
    std::vector<host::PatternPlace> places;
    for (const auto& place : fvPlaces) {
        host::PatternPlace shown{{}, place.fList};
        for (const auto& text : place.fvTexts)
            shown.fvTexts.push_back(text->Show(strings));
        places.push_back(std::move(shown));
    }
    return host::FillPattern(fTranslate ? strings.Text(fPattern) : fPattern, places);
}

std::string CompositeNode::Identity() const {
    std::string identity = "c:" + fPattern;
    for (const auto& place : fvPlaces) {
        for (const auto& text : place.fvTexts)
            identity += '\x1f' + text->Identity();
        identity += '\x1e';
    }
    return identity;
}

}  // namespace output
