// The checks of single files and of the elements in them.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <set>
#include <utility>

#include "directory_check.h"
#include "encoding/secret.h"
#include "leaf/file_replacer.h"
#include "leaf/file_text.h"
#include "leaf/kept_original.h"
#include "question.h"
#include "quiet_output.h"
#include "store/document_set.h"
#include "store/value.h"
#include "veltrancord/client.h"
#include "xml/document.h"

namespace veltrancord::tool {
namespace {

constexpr std::size_t longest_name = sizeof(XmlDocNode::name) - 1;
constexpr std::size_t longest_path = sizeof(XmlDocNode::path) - 1;

class element_check {
  public:
    element_check(const std::string& file, std::vector<finding>& findings)
        : file_(file), findings_(findings) {}

    void walk(const TiXmlElement& element, const std::string& path) {
        check_text(element, path);
        if (path.size() > VELTRANCORD_MAX_WRITE_PATH) {
            add(path, "long-path",
                "its path has " + std::to_string(path.size()) +
                    " characters, at most 255 can be "
                    "written");
        }
        std::set<std::string> names;
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            const std::string inner = path + "." + child->Value();
            if (!names.insert(child->Value()).second) {
                add(inner, "same-name", "stands more than once; a write reaches the first only");
            }
            walk(*child, inner);
        }
    }

  private:
    void add(const std::string& place, const char* kind, const std::string& text) {
        findings_.push_back({file_, place, kind, text});
    }

    void check_text(const TiXmlElement& element, const std::string& path) {
        const std::string_view text = XmlElementText(element);
        if (text.data() == nullptr) {
            return;
        }
        if (IsSecretName(element.Value())) {
            check_secret(text, path);
        } else if (text.size() > VELTRANCORD_MAX_VALUE) {
            add(path, "long-value",
                "its value has " + std::to_string(text.size()) +
                    " bytes, at most 4095 can be "
                    "written");
        }
        if (text.find('\n') != std::string_view::npos) {
            add(path, "line-feed", "its value holds a line feed, which no request can write");
        }
    }

    void check_secret(std::string_view text, const std::string& path) {
        if (text.substr(0, 4) != "enc:") {
            add(path, "plain-secret", "is stored in plain text; write it once to have it encoded");
            return;
        }
        const std::size_t colon = text.find(':', 4);
        std::array<char, secret_text_size> plain{};
        if (colon == std::string_view::npos || enc_value_decode(text, plain) != 0) {
            add(path, "bad-secret", "is no valid \"enc:\" text");
        }
        if (text.size() >= secret_text_size) {
            add(path, "long-value",
                "its stored form has " + std::to_string(text.size()) + " bytes, at most 255");
        }
    }

    std::string file_;
    std::vector<finding>& findings_;
};

// Whether somebody else's file was refused, which its owner, or root, may well be able to open: a
// member of the group may look at the files and not change them.
bool is_refused_to_others(const struct stat& status) {
    return errno == EACCES && geteuid() != 0 && status.st_uid != geteuid();
}

// How a file can be read from here.
enum class reading { as_service, as_other, refused, impossible };

// Reads the file as the service does, for which it must be writable, too.
reading read_file(const std::string& path, const struct stat& status, std::string& text) {
    const quiet_output quiet;
    if (LoadFile2Buf(path.c_str(), text) == 0) {
        return reading::as_service;
    }
    if (!is_refused_to_others(status)) {
        return reading::impossible;
    }
    return read_input(path, text) ? reading::as_other : reading::refused;
}

struct obstacle {
    const char* kind = "";
    std::string text;
};

obstacle skipped(const std::string& why) {
    return {"skipped", "would be skipped: " + why};
}

// What keeps the file from being loaded. Without text: nothing, it is in the store now.
obstacle load(const std::string& directory, const std::string& name, XmlDocument*& document) {
    const std::string path = directory + "/" + name;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return skipped("cannot be opened: dangling link");
    }
    if (name.size() > longest_name || path.size() > longest_path) {
        return skipped("its name has " + std::to_string(name.size()) +
                       " characters, at most 63 (with the directory at most 127)");
    }
    if (S_ISDIR(status.st_mode)) {
        return skipped("is a directory");
    }
    if (!S_ISREG(status.st_mode)) {
        return skipped("is no regular file");
    }
    if (status.st_size == 0) {
        return skipped("is empty");
    }
    std::string text;
    switch (read_file(path, status, text)) {
        case reading::impossible:
            return skipped("cannot be opened for reading and writing");
        case reading::refused:
            return {"not-readable", "may not be read from here, and was not checked: root can"};
        default:
            break;
    }
    const quiet_output quiet;
    auto parsed = std::make_unique<XmlDocument>(name.c_str());
    document = parsed.get();
    static_cast<void>(parsed->LoadXMLFile(std::move(text)));
    AddXmlDocNode(name, path, std::move(parsed));
    return {};
}

// What keeps the file from being read to its end.
finding damage(const std::string& name, const XmlDocument& document) {
    const std::string line = std::to_string(document.DamagedLine());
    if (!document.Error()) {
        return {name, "", "damaged",
                "is not read from line " + line + " on: a zero byte, or no element"};
    }
    const std::string reason =
        document.NestsTooDeep()
            ? "elements stand more than " + std::to_string(max_xml_nesting) + " deep"
            : document.ErrorDesc();
    return {name, "", "unparsable", "does not parse: " + reason + " (line " + line + ")"};
}

finding kept_original(const std::string& name) {
    return {name, "", "kept",
            "is the original of a damaged file, from before it was replaced; save what is needed "
            "of it and remove it"};
}

void check_document(const std::string& name, const XmlDocument& document,
                    std::vector<finding>& findings) {
    if (document.DamagedLine() != 0) {
        findings.push_back(damage(name, document));
    }
    const TiXmlElement* root = document.RootElement();
    if (root == nullptr) {
        if (document.DamagedLine() == 0) {
            findings.push_back({name, "", "no-root", "has no root element: it counts as empty"});
        }
        return;
    }
    if (name != root->Value()) {
        findings.push_back({name, "", "root-name",
                            "its root element is called \"" + root->ValueStr() +
                                "\", so that no path reaches what is in it"});
    }
    if (root->NextSiblingElement() != nullptr) {
        findings.push_back({name, "", "second-root", "has more than one root element"});
    }
    element_check(name, findings).walk(*root, root->ValueStr());
}

std::vector<std::string> names_in(const std::string& directory, bool& readable) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    readable = entries != nullptr;
    while (readable) {
        const dirent* entry = readdir(entries.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

bool check_files(const std::string& directory, std::vector<finding>& findings) {
    bool readable = false;
    for (const std::string& name : names_in(directory, readable)) {
        if (is_replacement_leftover(name)) {
            findings.push_back(
                {name, "", "leftover",
                 "was left by a save that was cut; the service removes it at start"});
            continue;
        }
        if (is_kept_original(name)) {
            findings.push_back(kept_original(name));
            continue;
        }
        XmlDocument* document = nullptr;
        const obstacle found = load(directory, name, document);
        if (!found.text.empty()) {
            findings.push_back({name, "", found.kind, found.text});
            continue;
        }
        if (name.find('.') != std::string::npos) {
            findings.push_back(
                {name, "", "dotted-name", "has a dot in its name, so that no path reaches it"});
        }
        check_document(name, *document, findings);
    }
    return readable;
}

void check_log(const std::string& file, std::vector<finding>& findings) {
    const std::string kept = kept_original_of(file);
    struct stat status {};
    if (lstat(kept.c_str(), &status) == 0) {
        findings.push_back(kept_original(kept));
    }
    if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    std::string text;
    XmlDocument document("Log");
    const reading how = read_file(file, status, text);
    if (how == reading::refused) {
        findings.push_back(
            {file, "", "not-readable", "may not be read from here, and was not checked: root can"});
    }
    if (how == reading::as_service || how == reading::as_other) {
        static_cast<void>(document.LoadXMLFile(std::move(text)));
    }
    if (document.DamagedLine() != 0) {
        findings.push_back(damage(file, document));
    }
}

}  // namespace veltrancord::tool
