#include "presentation/StyledText.h"

#include <map>
#include <optional>

#include "platform/UnicodeText.h"

using platform::PlistDictionary;
using platform::PlistValue;

namespace {

struct OpeningTag {
    std::size_t position;  // of "["
    std::size_t length;    // of "[name]"
    std::string name;
};

// The end of the run of \w characters (of any script, combining marks included) at `from`.
std::size_t endOfWord(const std::string& text, std::size_t from) {
    std::size_t end = from;
    for (std::size_t next = end; next < text.size(); end = next) {
        auto c = platform::nextCodePoint(text, next);
        if (!c || !platform::isWordCharacter(*c)) break;
    }
    return end;
}

// The first match of "\[(\w+)\]" at or after `from`.
std::optional<OpeningTag> findOpeningTag(const std::string& text, std::size_t from) {
    for (std::size_t open = text.find('[', from); open != std::string::npos;
         open = text.find('[', open + 1)) {
        const std::size_t end = endOfWord(text, open + 1);
        if (end > open + 1 && end < text.size() && text[end] == ']') {
            return OpeningTag{open, end + 1 - open, text.substr(open + 1, end - open - 1)};
        }
    }
    return std::nullopt;
}

void append(std::vector<VRTextRun>& runs, std::string text, const std::string& styleName,
            const PlistDictionary& attributes) {
    if (text.empty()) return;
    if (!runs.empty() && runs.back().styleName == styleName &&
        runs.back().attributes == attributes) {
        runs.back().text += text;
        return;
    }
    runs.push_back({std::move(text), styleName, attributes});
}

}  // namespace

std::string VRAttributedString::string() const {
    std::string text;
    for (const VRTextRun& run : runs) text += run.text;
    return text;
}

VRAttributedString attributedStringWithStyledText(const std::string& text,
                                                  const PlistDictionary& styles) {
    const PlistDictionary none;
    std::vector<VRTextRun> runs;
    // Where a closing tag was last found missing: it stays missing behind that point, which
    // keeps texts with many unclosed tags linear.
    std::map<std::string, std::size_t> closingAbsentFrom;
    std::size_t rest = 0;
    while (rest < text.size()) {
        std::optional<OpeningTag> tag = findOpeningTag(text, rest);
        if (!tag) {
            append(runs, text.substr(rest), "", none);
            break;
        }
        const std::size_t contentStart = tag->position + tag->length;
        const std::string closing = "[/" + tag->name + "]";
        // Looking only behind the opening tag: a closing tag in front of it would give a run of
        // negative length, which the texts never contain.
        auto style = styles.find(tag->name);
        std::size_t close = std::string::npos;
        auto absent = closingAbsentFrom.find(tag->name);
        if (style != styles.end() &&
            (absent == closingAbsentFrom.end() || contentStart < absent->second)) {
            close = text.find(closing, contentStart);
            if (close == std::string::npos) closingAbsentFrom[tag->name] = contentStart;
        }
        if (close != std::string::npos) {
            append(runs, text.substr(rest, tag->position - rest), "", none);
            const PlistDictionary* attributes = style->second.dictionary();
            append(runs, text.substr(contentStart, close - contentStart), tag->name,
                   attributes ? *attributes : none);
            rest = close + closing.size();
        } else {
            append(runs, text.substr(rest, contentStart - rest), "", none);
            rest = contentStart;
        }
    }

    auto basic = styles.find(VRStyledTextBasicKey);
    if (basic == styles.end() || !basic->second.isDictionary()) return {std::move(runs)};
    VRAttributedString result;
    for (VRTextRun& run : runs) {
        for (const auto& [key, value] : *basic->second.dictionary()) run.attributes[key] = value;
        append(result.runs, std::move(run.text), run.styleName, run.attributes);
    }
    return result;
}
