// How a changed element is found in the text.
//
// Each element begins a line, which is indented by its depth, so the path from the top to it can be
// followed in the text alone: the first line of that depth and name below the parent's, as a change
// of a value goes to the first child of each name. Names, texts and attribute values hold no line
// feed and no angle bracket there, since these are written as entities; PrintXml tells where that
// is not so (a comment of several lines, say), and such a text is printed for each save.
//
// An element that stands on one line, from its tag to its end, has at most a text and no other
// child. Changing its value changes this line and no other. For all else, and wherever something is
// not as it should be, the text is let go, and the next save prints the document.
#include "store/kept_text.h"

#include <new>

#include "leaf/result.h"
#include "store/value.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

constexpr std::size_t npos = std::string_view::npos;

bool IsWholeElement(std::string_view line, std::string_view name) {
    if (line.ends_with("/>")) {
        return true;
    }
    if (!line.ends_with('>')) {
        return false;
    }
    line.remove_suffix(1);
    return line.ends_with(name) && line.substr(0, line.size() - name.size()).ends_with("</");
}

}  // namespace

std::string_view kept_text::Of(const XmlDocument& document) {
    if (!Holds(document)) {
        edition_ = 0;
        text_.assign(1, '\n');
        regular_ = SerialiseXmlDoc(document, text_);
        edition_ = document.Edition();
    }
    work_ = 0;
    return std::string_view(text_).substr(1);
}

void kept_text::LetGoOfLong() {
    if (text_.size() > most_kept) {
        edition_ = 0;
        text_ = std::string();
    }
}

int32_t kept_text::SetValue(XmlDocument& document, const XmlPath& path, std::string_view value) {
    const bool held = regular_ && Holds(document);
    document.NewEdition();
    const int32_t result = SetXmlValue(document, path, value);
    if (held) {
        // Nothing is kept until all has gone well.
        edition_ = 0;
        if (result == result_ok && FollowIfMemoryAllows(document, path)) {
            edition_ = document.Edition();
        }
    }
    return result;
}

// Where tag_ stands as the whole beginning of a start tag, from `from` on.
std::size_t kept_text::FindTag(std::size_t from) const {
    for (;;) {
        const std::size_t at = text_.find(tag_, from);
        if (at == npos) {
            return npos;
        }
        const std::size_t behind = at + tag_.size();
        if (behind < text_.size() && (text_[behind] == '>' || text_[behind] == ' ')) {
            return at;
        }
        from = at + 1;
    }
}

// Return: where the line feed before the element's line stands, or npos.
std::size_t kept_text::FindLine(const XmlPath& path) {
    std::size_t line = 0;
    over_.clear();
    for (std::size_t depth = 0; depth < path.size(); ++depth) {
        tag_.assign(1, '\n').append(depth * xml_indentation, ' ').append(1, '<');
        const std::size_t bare = tag_.size();
        const std::size_t from = depth > 0 ? line + 1 : 0;
        const std::size_t found = FindTag((tag_ += path[depth].text(), from));
        if (found == npos) {
            return npos;
        }
        // The parent ends, at the latest, where the next line of its own depth is.
        if (depth > 0 && std::string_view(text_).substr(from, found - from).find(over_) != npos) {
            return npos;
        }
        over_.assign(tag_, 0, bare);
        line = found;
    }
    return line;
}

// Return: false when the text could not be brought up to date.
bool kept_text::Follow(XmlDocument& document, const XmlPath& path) {
    const TiXmlElement* const element = FindXmlElement(document.FirstChildElement(), path);
    const std::size_t at = FindLine(path);
    const std::size_t end = at != npos ? text_.find('\n', at + 1) : npos;
    if (element == nullptr || end == npos) {
        return false;
    }
    const std::string_view old = std::string_view(text_).substr(at, end - at);
    if (!IsWholeElement(old, element->ValueStr())) {
        return false;
    }
    line_.assign(1, '\n');
    if (!PrintXml(*element, static_cast<int>(path.size()) - 1, line_) ||
        line_.find('\n', 1) != npos) {
        return false;
    }
    // Many changes between two saves must not cost more than printing would. Moving text takes an
    // eighth of searching it.
    work_ += at + (line_.size() != old.size() ? (text_.size() - at) / 8 : 0);
    text_.replace(at, end - at, line_);
    return work_ <= text_.size();
}

// The value is set, and no want of memory here may keep its document from being marked for saving.
bool kept_text::FollowIfMemoryAllows(XmlDocument& document, const XmlPath& path) {
    try {
        return Follow(document, path);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace veltrancord
