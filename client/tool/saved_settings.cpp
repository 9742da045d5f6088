#include "saved_settings.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "encoding/escape.h"
#include "exit_status.h"
#include "handler/reply_text.h"
#include "question.h"
#include "running_service.h"
#include "service.h"
#include "store/attribute_query.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/subtree_listing.h"
#include "store/value.h"
#include "xml/document.h"
#include "xml/element_text.h"
#include "xml/text.h"

namespace veltrancord::tool {
namespace {

using value_map = std::map<std::string, std::vector<std::string>>;

enum class file_look { read, missing, unseen };

// A document as its file has it.
struct file_document {
    file_look look = file_look::unseen;
    std::string path;
    std::unique_ptr<XmlDocument> xml;
};

std::string encoded_name(std::string_view name) {
    std::array<char, 3 * VELTRANCORD_MAX_READ_PATH + 1> encoded{};
    return url_encode(encoded.data(), encoded.size(), name);
}

file_document read_document(const std::string& directory, const std::string& name) {
    file_document document;
    document.path = directory + "/" + encoded_name(name);
    struct stat status {};
    if (stat(document.path.c_str(), &status) != 0) {
        const bool there = stat(directory.c_str(), &status) == 0;
        document.look = there && errno == ENOENT ? file_look::missing : file_look::unseen;
        return document;
    }
    std::string text;
    if (!S_ISREG(status.st_mode) || !read_input(document.path, text)) {
        return document;
    }
    document.xml = std::make_unique<XmlDocument>(name.c_str());
    (void)document.xml->LoadXMLFile(std::move(text));
    document.look = file_look::read;
    return document;
}

// The texts of the elements below, by path; secrets in their stored form.
void collect_texts(const TiXmlElement& element, const std::string& path, value_map& values) {
    const std::string_view text = XmlElementText(element);
    if (!text.empty() && path.size() < listing_key_size) {
        values[path].emplace_back(text);
    }
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        std::array<char, 768> name{};
        collect_texts(*child, path + "." + url_decode(name.data(), name.size(), child->Value()),
                      values);
    }
}

// A secret in the form in which the service stores it. Empty: there is none.
std::string stored_form(context& tool, const std::string& path) {
    owned_reply reply;
    const bool found = veltrancord_read(&tool.client(), path.c_str(), reply.get()) >= 0;
    const std::string text = found ? reply.text() : std::string();
    return text.size() > path.size() ? text.substr(path.size() + 1) : std::string();
}

// Whether a text of a file is what becomes of a value that is saved.
bool is_saved_form(const std::string& text, const std::string& value) {
    return text == value || text == value_as_loaded(value);
}

// Whether the file has at `path` what the service holds there now.
bool agrees_now(context& tool, const std::string& path, const std::string& text) {
    if (is_secret_path(path)) {
        return stored_form(tool, path) == text;
    }
    std::string value;
    (void)get_value(tool, path, value);
    return is_saved_form(text, value);
}

std::string document_of(const std::string& path) {
    return path.substr(0, path.find('.'));
}

// The settings of each document, by path.
std::map<std::string, value_map> by_document(const setting_list& settings) {
    std::map<std::string, value_map> documents;
    for (const setting& one : settings) {
        if (!one.value.empty() && one.path.size() < listing_key_size) {
            documents[document_of(one.path)][one.path].push_back(one.value);
        }
    }
    return documents;
}

class comparison {
  public:
    comparison(context& tool, const held_settings& now, const held_settings* earlier)
        : tool_(tool), now_(by_document(now.settings)), attributes_(by_document(now.attributes)) {
        if (earlier != nullptr) {
            earlier_ = by_document(earlier->settings);
            earlier_attributes_ = by_document(earlier->attributes);
        }
    }

    [[nodiscard]] const std::map<std::string, value_map>& documents() const { return now_; }

    // Return: the first place where the file differs from what the service holds, or nothing.
    std::string difference(const std::string& name, file_document file) {
        value_map texts;
        if (const TiXmlElement* root = file.xml->RootElement(); root != nullptr) {
            collect_texts(*root, name, texts);
        }
        std::string place = first_difference(texts, now_[name], earlier_[name]);
        if (place.empty()) {
            place = first_difference(attributes_of(name, std::move(file)), attributes_[name],
                                     earlier_attributes_[name]);
        }
        return place;
    }

  private:
    std::string first_difference(const value_map& texts, const value_map& now,
                                 const value_map& earlier) {
        for (const auto& [path, values] : now) {
            if (!agrees(path, values_at(texts, path), values, values_at(earlier, path))) {
                return path;
            }
        }
        for (const auto& [path, values] : texts) {
            if (now.count(path) == 0 && !agrees(path, values, {}, values_at(earlier, path))) {
                return path;
            }
        }
        return {};
    }

    static std::vector<std::string> values_at(const value_map& map, const std::string& path) {
        const auto found = map.find(path);
        return found == map.end() ? std::vector<std::string>() : found->second;
    }

    bool agrees(const std::string& path, const std::vector<std::string>& texts,
                const std::vector<std::string>& now, const std::vector<std::string>& earlier) {
        if (is_secret_path(path)) {
            return stored_form(tool_, path) == (texts.empty() ? "" : texts.front());
        }
        if (texts.empty()) {  // the library drops a text of blanks alone
            return std::all_of(now.begin(), now.end(), [](const std::string& value) {
                return value_as_loaded(value).empty();
            });
        }
        return std::equal(texts.begin(), texts.end(), now.begin(), now.end(), is_saved_form) ||
               std::equal(texts.begin(), texts.end(), earlier.begin(), earlier.end(),
                          is_saved_form);
    }

    // The attributes as the service would list them of this file.
    static value_map attributes_of(const std::string& name, file_document file) {
        XmlDocNode* record = AddXmlDocNode(encoded_name(name), file.path, std::move(file.xml));
        reply_text list;
        value_map attributes;
        if (record != nullptr && list.open(INT32_MAX) &&
            ReadAttributeHandleFun(name + ".*", list) > 0) {
            attributes = by_document(parse_settings(std::string(list.view())))[name];
        }
        (void)RemoveXmlDocNode(record);
        return attributes;
    }

    context& tool_;
    std::map<std::string, value_map> now_;
    std::map<std::string, value_map> attributes_;
    std::map<std::string, value_map> earlier_;
    std::map<std::string, value_map> earlier_attributes_;
};

std::string free_room(const std::string& path) {
    struct statvfs room {};
    if (statvfs(path.substr(0, path.rfind('/')).c_str(), &room) != 0) {
        return {};
    }
    const unsigned long long bytes = static_cast<unsigned long long>(room.f_bavail) * room.f_frsize;
    return ", with " + std::to_string(bytes >> 10U) + " KiB free";
}

// Whether the file holds this setting, which was written, or what has taken its place since.
bool is_saved(context& tool, const file_document& file, const setting& one) {
    XmlPath list;
    if (!SplitXmlPath(one.path, list)) {
        return true;
    }
    const TiXmlElement* element = FindXmlElement(file.xml->RootElement(), list);
    const std::string text(element != nullptr ? XmlElementText(*element) : std::string_view());
    return (!is_secret_path(one.path) && is_saved_form(text, one.value)) ||
           agrees_now(tool, one.path, text);
}

}  // namespace

std::string value_as_loaded(const std::string& value) {
    TiXmlElement element("V");
    WriteElementText(element, value);
    XmlDocument written("V");
    written.InsertEndChild(element);
    XmlDocument loaded("V");
    (void)loaded.LoadXMLFile(SerialiseXmlDoc(written));
    const TiXmlElement* root = loaded.RootElement();
    return root != nullptr ? std::string(XmlElementText(*root)) : std::string();
}

int32_t read_held_settings(context& tool, held_settings& held) {
    held_settings found;
    const int32_t result = read_subtree(tool, "", found.settings);
    if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
        return result;
    }
    for (const auto& [name, values] : by_document(found.settings)) {
        owned_reply reply;
        if (veltrancord_read_attributes(&tool.client(), (name + ".*").c_str(), reply.get()) > 0) {
            const setting_list attributes = parse_settings(reply.text());
            found.attributes.insert(found.attributes.end(), attributes.begin(), attributes.end());
        }
    }
    held = std::move(found);
    return VELTRANCORD_OK;
}

int32_t compare_with_files(context& tool, const std::string& directory,
                           const held_settings* earlier, save_report& report) {
    held_settings now;
    const int32_t result = read_held_settings(tool, now);
    if (result < 0) {
        return result;
    }
    comparison all(tool, now, earlier);
    report.documents = all.documents().size();
    for (const auto& [name, values] : all.documents()) {
        file_document file = read_document(directory, name);
        if (file.look == file_look::unseen) {
            report.unseen.push_back(name);
        } else if (file.look == file_look::read) {
            const std::string path = file.path;
            const std::string place = all.difference(name, std::move(file));
            if (!place.empty()) {
                report.unsaved.push_back({name, path, place});
            }
        } else if (is_there(tool, name)) {  // else its root has another name than its file
            report.unsaved.push_back({name, file.path, name});
        }
    }
    return VELTRANCORD_OK;
}

int check_saved(context& tool, const setting_list& written) {
    const running_service service = find_service(tool);
    if (!service.paths_known) {
        return exit_done;
    }
    std::map<std::string, setting> last;  // of several lines of one place
    for (const setting& one : written) {
        last[one.path] = one;
    }
    std::map<std::string, file_document> files;
    std::map<std::string, unsaved_document> unsaved;
    for (const auto& [path, one] : last) {
        const std::string name = document_of(path);
        auto file = files.find(name);
        if (file == files.end()) {
            file = files.emplace(name, read_document(service.directory, name)).first;
        }
        const bool missing = file->second.look == file_look::missing;
        if (missing ||
            (file->second.look == file_look::read && !is_saved(tool, file->second, one))) {
            unsaved.emplace(name, unsaved_document{name, file->second.path, path});
        }
    }
    std::vector<unsaved_document> list;
    list.reserve(unsaved.size());
    for (auto& [name, one] : unsaved) {
        list.push_back(std::move(one));
    }
    return tell_unsaved(tool, list);
}

int tell_unsaved(context& tool, const std::vector<unsaved_document>& unsaved) {
    int status = exit_done;
    for (const unsaved_document& one : unsaved) {
        status = tool.fail_with(exit_not_saved, one.place,
                                "applied, but not saved: " + one.file + " holds something else" +
                                    free_room(one.file) +
                                    "; the service holds the new value and tries to save it again");
    }
    return status;
}

}  // namespace veltrancord::tool
