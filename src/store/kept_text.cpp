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

std::string_view KeptText::Of(const XmlDocument& document) {
    if (!Holds(document)) {
        edition_ = 0;
        text_.assign(1, '\n');
        // A byte order mark stands in the line of the first element, which would not be found
        // there.
        regular_ = SerialiseXmlDoc(document, text_) && !document.HasByteOrderMark();
        edition_ = document.Edition();
    }
    followed_ = false;
    return std::string_view(text_).substr(1);
}

void KeptText::LetGo() {
    edition_ = 0;
    std::string().swap(text_);  // an assignment would keep the memory
}

void KeptText::LetGoOfLong() {
    if (text_.size() > most_kept) {
        LetGo();
    }
}

// Where `tag` stands as the whole beginning of a start tag, from `from` on, or npos.
std::size_t KeptText::FindTag(const std::string& tag, std::size_t from) const {
    for (;;) {
        const std::size_t at = text_.find(tag, from);
        if (at == npos) {
            return npos;
        }
        const std::size_t behind = at + tag.size();
        if (behind < text_.size() && (text_[behind] == '>' || text_[behind] == ' ')) {
            return at;
        }
        from = at + 1;
    }
}

// Return: where the line feed before the element's line stands, or npos.
std::size_t KeptText::FindLine(const XmlPath& path) const {
    std::size_t line = 0;
    std::string above;  // how lines of the parent's depth begin
    for (std::size_t depth = 0; depth < path.size(); ++depth) {
        const std::string begin = std::string(1, '\n').append(depth * xml_indentation, ' ') + '<';
        const std::size_t from = depth > 0 ? line + 1 : 0;
        const std::size_t found = FindTag(begin + path[depth].name, from);
        if (found == npos) {
            return npos;
        }
        // The parent ends, at the latest, where the next line of its own depth is.
        if (depth > 0 && std::string_view(text_).substr(from, found - from).find(above) != npos) {
            return npos;
        }
        above = begin;
        line = found;
    }
    return line;
}

// Return: false when the line is not the whole change.
bool KeptText::ReplaceLine(const XmlPath& path, const TiXmlElement& element) {
    const std::size_t at = FindLine(path);
    const std::size_t end = at != npos ? text_.find('\n', at + 1) : npos;
    if (end == npos ||
        !IsWholeElement(std::string_view(text_).substr(at, end - at), element.ValueStr())) {
        return false;
    }
    std::string line(1, '\n');
    if (!PrintXml(element, static_cast<int>(path.size()) - 1, line) || line.find('\n', 1) != npos) {
        return false;
    }
    text_.replace(at, end - at, line);
    return true;
}

// The value is set, and no want of memory here may keep its document from being marked for saving.
void KeptText::Follow(const XmlDocument& document, uint64_t before, const XmlPath& path,
                      const TiXmlElement& element) {
    if (edition_ != before) {
        return;
    }
    edition_ = 0;  // nothing is kept until all has gone well
    try {
        if (!followed_ && regular_ && ReplaceLine(path, element)) {
            edition_ = document.Edition();
            followed_ = true;
            return;
        }
    } catch (const std::bad_alloc&) {
    }
    LetGo();
}

}  // namespace veltrancord
