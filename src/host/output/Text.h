#pragma once

#include "contracts/HostOutput.h"
#include "host/strings/Catalogue.h"

#include <memory>
#include <string>
#include <vector>

/// The texts of the output tree. A text keeps what it was made of; a catalogue turns it into what is shown.
namespace output {

/// A number in the tree: the full double and how it wants to look.
struct Figure {
    double fValue;
    BpFormatSpec fFormat;
};

struct TextNode {
    virtual ~TextNode() = default;
    virtual std::string Show(const host::Catalogue& strings) const = 0;
    /// The same for equal texts in every language; it separates two data values that share a label.
    virtual std::string Identity() const = 0;
    virtual const Figure* AsFigure() const { return nullptr; }
};

using Text = std::shared_ptr<const TextNode>;

/// A text of the tree where the contract wants a cell text.
struct TextHandle : BpCellText {
    explicit TextHandle(const Text& text) : BpCellText(std::const_pointer_cast<TextNode>(text)) {}
};

/// The texts behind the contract's cell texts.
std::shared_ptr<TextNode> MakeString(const std::string& text, bool translate);
std::shared_ptr<TextNode> MakeNumber(double value, const BpFormatSpec& format);
/// A text that stands for a value of the data: equal texts of different values stay apart. The figure is the value
/// itself where it is a number.
std::shared_ptr<TextNode> MakeValue(const std::string& text, const std::string& value, std::shared_ptr<Figure> figure);

/// A pattern with its places: single texts and lists.
struct CompositeNode : TextNode {
    CompositeNode(const std::string& pattern, bool translate) : fPattern(pattern), fTranslate(translate) {}
    std::string Show(const host::Catalogue& strings) const override;
    std::string Identity() const override;

    struct Place {
        std::vector<Text> fvTexts;
        bool fList = false;
    };
    std::string fPattern;
    bool fTranslate;
    std::vector<Place> fvPlaces;
    bool fInList = false;
};

}  // namespace output
