#include "creation.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <set>

#include "exit_status.h"
#include "file_name.h"
#include "service.h"
#include "setting_tree.h"
#include "store/document_set.h"
#include "xml/syntax.h"

namespace veltrancord::tool {

namespace {

// Names further apart than this were not meant.
constexpr std::size_t most_slips = 2;

bool same_letter(char one, char other) {
    return std::tolower(static_cast<unsigned char>(one)) ==
           std::tolower(static_cast<unsigned char>(other));
}

// The nearest of the names below `parent` ("": of the documents), or nothing.
std::string nearest_name(context& tool, const std::string& parent, const std::string& name) {
    setting_list settings;
    if (read_subtree(tool, parent, settings) < 0) {
        return {};
    }
    std::string nearest;
    std::size_t least = most_slips + 1;
    const setting_tree tree(parent, settings);
    for (const setting_tree::node& child : tree.root().children) {
        const std::size_t distance = name_distance(child.name, name);
        if (distance < least && distance < name.size()) {
            least = distance;
            nearest = child.name;
        }
    }
    return nearest;
}

// The path with its first missing component replaced by the nearest name there is, or nothing.
std::string nearest_path(context& tool, const std::string& path) {
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = std::min(path.find('.', start), path.size());
        if (look_for(tool, path.substr(0, end)) < 0) {
            const std::string parent = path.substr(0, start > 0 ? start - 1 : 0);
            const std::string name = nearest_name(tool, parent, path.substr(start, end - start));
            return name.empty() ? name : path.substr(0, start) + name + path.substr(end);
        }
        if (end == path.size()) {
            return {};
        }
        start = end + 1;
    }
}

int refuse_creation(context& tool, const std::string& path) {
    const std::string meant = nearest_path(tool, path);
    const std::string proposal = meant.empty() ? "" : "; did you mean " + meant + "?";
    return tool.fail_with(exit_not_found, path,
                          "there is no such setting" + proposal + (proposal.empty() ? "; " : " ") +
                              "--create makes it. Nothing was written");
}

// The component that names the document; the service passes over empty ones before it.
std::string document_of(const std::string& path) {
    const std::size_t start = std::min(path.find_first_not_of('.'), path.size());
    return path.substr(start, path.find('.', start) - start);
}

// Merged and not loaded: a document that somebody else makes meanwhile keeps what it holds.
int merge_empty(context& tool, const std::set<std::string>& documents) {
    std::string text = "<ROOT>\n";
    for (const std::string& name : documents) {
        text.append("<").append(name).append("></").append(name).append(">\n");
    }
    const service_file file = service_file::with_text(text + "</ROOT>\n");
    if (file.name().empty()) {
        return tool.fail_with(exit_failed, "a file in /tmp", std::strerror(errno));
    }
    const int32_t result = veltrancord_sync_file(&tool.client(), file.name().c_str());
    if (result < 0) {
        return tool.fail_change(*documents.begin(), result);
    }
    for (const std::string& name : documents) {
        context::note("created the document " + name);
    }
    return exit_done;
}

}  // namespace

std::size_t name_distance(std::string_view one, std::string_view other) {
    // Rows of the usual table: of the letter before the last, of the last, and of this one.
    std::vector<std::size_t> before(other.size() + 1);
    std::vector<std::size_t> last(other.size() + 1);
    std::vector<std::size_t> row(other.size() + 1);
    for (std::size_t j = 0; j <= other.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= one.size(); ++i) {
        before.swap(last);
        last.swap(row);
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t change = same_letter(one[i - 1], other[j - 1]) ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            if (i > 1 && j > 1 && same_letter(one[i - 1], other[j - 2]) &&
                same_letter(one[i - 2], other[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
    }
    return row[other.size()];
}

int check_creation(context& tool, const setting_list& settings, bool create,
                   std::vector<std::string>& created) {
    std::set<std::string> seen;
    for (const setting& one : settings) {
        if (!seen.insert(one.path).second) {
            continue;
        }
        const int32_t result = look_for(tool, one.path);
        // What the library refuses, the write is refused for, with its own reason.
        if (result >= 0 || result <= VELTRANCORD_INVALID_USE) {
            continue;
        }
        if (result != VELTRANCORD_NOT_FOUND) {
            return tool.fail(one.path, result);
        }
        if (!create) {
            return refuse_creation(tool, one.path);
        }
        created.push_back(one.path);
    }
    return exit_done;
}

int make_documents(context& tool, const std::vector<std::string>& created) {
    std::set<std::string> missing;
    for (const std::string& path : created) {
        const std::string name = document_of(path);
        const int32_t result = look_for(tool, name);
        if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
            return tool.fail(name, result);
        }
        if (result < 0 && (!IsXmlName(name) || name.size() >= sizeof(XmlDocNode::name))) {
            return tool.fail_with(exit_refused, name,
                                  "no document can have this name. Nothing was written");
        }
        if (result < 0) {
            missing.insert(name);
        }
    }
    return missing.empty() ? static_cast<int>(exit_done) : merge_empty(tool, missing);
}

void tell_created(const std::vector<std::string>& created) {
    for (const std::string& path : created) {
        context::note("created " + path);
    }
}

}  // namespace veltrancord::tool
