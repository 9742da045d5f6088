#include "schema/reader.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <numeric>
#include <set>
#include <utility>

#include "schema/check.h"
#include "schema/markup.h"
#include "schema/simple_type_reader.h"

namespace veltrancord::schema {
namespace {

// A description of families within families names more settings than any device has memory for.
constexpr std::size_t most_settings = 100000;

// More than a path has room for; and each is read within the one around it.
constexpr int most_types_within = 100;

bool is_plain_name(const std::string& name) {
    const auto may_begin = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               static_cast<unsigned char>(c) > 126;
    };
    return !name.empty() && may_begin(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char c) {
               return may_begin(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
           });
}

class description_reader {
  public:
    description_reader(markup& xml, document_description& description)
        : xml_(xml), description_(description) {}

    void read(const TiXmlElement& root);

  private:
    struct named_type {
        const TiXmlElement* where = nullptr;
        bool is_simple = false;
        bool being_read = false;
        bool done = false;
        const simple_type* simple = nullptr;
        const complex_type* complex = nullptr;
    };

    void note_type(const TiXmlElement& element, bool is_simple);
    std::string read_name(const TiXmlElement& element);
    named_type* find_type(const TiXmlElement& where, const std::string& reference);
    const simple_type* find_simple(const TiXmlElement& where, const std::string& reference);
    const simple_type* find_built_in(const TiXmlElement& where, std::string_view name);
    const simple_type* make_simple(const TiXmlElement& element, const std::string& name);
    const complex_type* make_complex(const TiXmlElement& element, const std::string& name);
    bool read_into(const TiXmlElement& child, std::string_view name, complex_type& type);
    void read_elements(const TiXmlElement& group, complex_type& type);
    void read_simple_content(const TiXmlElement& content, complex_type& type);
    void read_attribute(const TiXmlElement& element, complex_type& type);
    void finish(complex_type& type);

    element_description read_element(const TiXmlElement& element, bool is_root);
    void read_occurrence(const TiXmlElement& element, element_description& made);
    void take_type(const TiXmlElement& element, element_description& made);
    void take_default(const TiXmlElement& element, const simple_type* type,
                      std::optional<std::string>& taken);
    [[nodiscard]] std::size_t settings_in(const complex_type& type);

    markup& xml_;
    document_description& description_;
    std::map<std::string, named_type, std::less<>> types_;
    std::map<std::string, const simple_type*, std::less<>> built_in_;
    std::map<const complex_type*, std::size_t> sizes_;
    int depth_ = 0;  // types being read within types
};

std::string description_reader::read_name(const TiXmlElement& element) {
    const auto name = markup::attribute(element, "name");
    if (!name || !is_plain_name(*name)) {
        xml_.tell(element,
                  "<" + element.ValueStr() +
                      "> has no name=\"...\" that a document can hold; write it as stored: "
                      "a blank is _20");
        return {};
    }
    return *name;
}

void description_reader::note_type(const TiXmlElement& element, bool is_simple) {
    xml_.allow(element, {"name"});
    const std::string name = read_name(element);
    if (name.empty()) {
        return;
    }
    named_type& type = types_[name];
    if (type.where != nullptr) {
        xml_.tell(element, "is a second type " + name + "; give it another name");
        return;
    }
    type.where = &element;
    type.is_simple = is_simple;
}

const simple_type* description_reader::find_built_in(const TiXmlElement& where,
                                                     std::string_view name) {
    const auto known = built_in_.find(name);
    if (known != built_in_.end()) {
        return known->second;
    }
    std::unique_ptr<simple_type> made = built_in_type(name);
    if (!made) {
        xml_.tell(where,
                  "xs:" + std::string(name) + " is not read here; " + instead_of_built_in(name));
        return nullptr;
    }
    const simple_type* const type = made.get();
    description_.simple_types.push_back(std::move(made));
    built_in_.emplace(name, type);
    return type;
}

// The type of the file, read if it has not been yet. Null, told, where there is none of that name.
description_reader::named_type* description_reader::find_type(const TiXmlElement& where,
                                                              const std::string& reference) {
    const auto found = types_.find(reference);
    if (found == types_.end()) {
        xml_.tell(where, "there is no type " + reference + " in this file; write it into it");
        return nullptr;
    }
    named_type& type = found->second;
    if (type.being_read) {
        xml_.tell(where, "the type " + reference + " is made of itself; write it without");
        return nullptr;
    }
    if (!type.done && ++depth_ > most_types_within) {
        xml_.tell(where, "types stand within types, too deep");
        --depth_;
        return nullptr;
    }
    if (!type.done) {
        type.being_read = true;
        if (type.is_simple) {
            type.simple = make_simple(*type.where, reference);
        } else {
            type.complex = make_complex(*type.where, reference);
        }
        type.being_read = false;
        type.done = true;
        --depth_;
    }
    return &type;
}

const simple_type* description_reader::find_simple(const TiXmlElement& where,
                                                   const std::string& reference) {
    const std::string_view built_in = xml_.built_in(reference);
    if (!built_in.empty()) {
        return find_built_in(where, built_in);
    }
    const named_type* const found = find_type(where, reference);
    if (found != nullptr && !found->is_simple) {
        xml_.tell(where, "the type " + reference +
                             " has elements or attributes; a simple type is "
                             "wanted here");
        return nullptr;
    }
    return found != nullptr ? found->simple : nullptr;
}

const simple_type* description_reader::make_simple(const TiXmlElement& element,
                                                   const std::string& name) {
    auto made = std::make_unique<simple_type>();
    made->name = name;
    const auto find = [this](const TiXmlElement& where, const std::string& reference) {
        return find_simple(where, reference);
    };
    read_simple_type(xml_, element, find, *made);
    const simple_type* const type = made.get();
    description_.simple_types.push_back(std::move(made));
    return type;
}

const complex_type* description_reader::make_complex(const TiXmlElement& element,
                                                     const std::string& name) {
    auto made = std::make_unique<complex_type>();
    made->name = name;
    made->line = static_cast<std::size_t>(std::max(element.Row(), 0));
    int groups = 0;
    if (++depth_ > most_types_within) {
        xml_.tell(element, "types stand within types, too deep");
        --depth_;
        return nullptr;
    }
    xml_.each_child(element, [&](const TiXmlElement& child, std::string_view kind) {
        if (kind == "all" || kind == "sequence" || kind == "simpleContent") {
            if (++groups > 1) {
                xml_.tell(child, "a type has one xs:all, xs:sequence or xs:simpleContent");
                return true;
            }
            if (!made->attributes.empty()) {
                xml_.tell(child, "stands behind an xs:attribute; write it before");
            }
        }
        return read_into(child, kind, *made);
    });
    finish(*made);
    --depth_;
    const complex_type* const type = made.get();
    description_.complex_types.push_back(std::move(made));
    return type;
}

bool description_reader::read_into(const TiXmlElement& child, std::string_view name,
                                   complex_type& type) {
    if (name == "annotation") {
        read_annotation(xml_, child, type.told);
    } else if (name == "all" || name == "sequence") {
        type.ordered = name == "sequence";
        read_elements(child, type);
    } else if (name == "simpleContent") {
        read_simple_content(child, type);
    } else if (name == "attribute") {
        if (type.text != nullptr) {
            xml_.tell(child, "stands behind xs:simpleContent; write it into its xs:extension");
        }
        read_attribute(child, type);
    } else {
        return false;
    }
    return true;
}

void description_reader::read_elements(const TiXmlElement& group, complex_type& type) {
    xml_.allow(group, {});
    std::set<std::string> names;
    xml_.each_child(group, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "annotation") {
            read_annotation(xml_, child, type.told);
            return true;
        }
        if (name != "element") {
            return false;
        }
        type.elements.push_back(read_element(child, false));
        if (!names.insert(type.elements.back().name).second) {
            xml_.tell(child,
                      "is a second element " + type.elements.back().name + "; write it once");
        }
        return true;
    });
}

// <xs:simpleContent><xs:extension base="..."> and attributes: a text that has attributes.
void description_reader::read_simple_content(const TiXmlElement& content, complex_type& type) {
    xml_.allow(content, {});
    xml_.each_child(content, [&](const TiXmlElement& extension, std::string_view kind) {
        if (kind != "extension" || type.text != nullptr) {
            return false;
        }
        xml_.allow(extension, {"base"});
        const auto base = markup::attribute(extension, "base");
        if (base) {
            type.text = find_simple(extension, *base);
        } else {
            xml_.tell(extension, "has no base=\"...\"; write the type of the text");
        }
        xml_.each_child(extension, [&](const TiXmlElement& child, std::string_view name) {
            if (name == "attribute") {
                read_attribute(child, type);
            }
            return name == "attribute";
        });
        return true;
    });
    if (content.FirstChildElement() == nullptr) {
        xml_.tell(content, "says nothing; write <xs:extension base=\"...\"> into it");
    }
}

void description_reader::read_attribute(const TiXmlElement& element, complex_type& type) {
    xml_.allow(element, {"name", "type", "use", "default"});
    attribute_description made;
    made.name = read_name(element);
    const auto reference = markup::attribute(element, "type");
    made.type = reference ? find_simple(element, *reference) : nullptr;
    const TiXmlElement* inner = nullptr;
    xml_.each_child(element, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "annotation") {
            read_annotation(xml_, child, made.told);
            return true;
        }
        if (name != "simpleType" || reference || inner != nullptr) {
            return false;
        }
        inner = &child;
        xml_.allow(child, {});
        made.type = make_simple(child, "");
        return true;
    });
    if (!reference && inner == nullptr) {
        xml_.tell(element, "the attribute " + made.name + " has no type; write type=\"xs:string\"");
    }
    const std::string use = markup::attribute(element, "use").value_or("optional");
    made.required = use == "required";
    if (use != "required" && use != "optional") {
        xml_.tell(element, "has use=\"" + use + "\"; write \"required\" or \"optional\"");
    }
    take_default(element, made.type, made.default_value);
    if (made.default_value && made.required) {
        xml_.tell(element, "is required, so that its default is never used; leave one away");
    }
    const bool again =
        std::any_of(type.attributes.begin(), type.attributes.end(),
                    [&](const attribute_description& one) { return one.name == made.name; });
    if (again) {
        xml_.tell(element, "is a second attribute " + made.name);
    }
    if (made.type != nullptr) {
        type.attributes.push_back(std::move(made));
    }
}

// Puts the elements in order for look-ups.
void description_reader::finish(complex_type& type) {
    type.by_name.resize(type.elements.size());
    std::iota(type.by_name.begin(), type.by_name.end(), std::size_t{0});
    const auto name_of = [&](std::size_t index) -> const std::string& {
        return type.elements[index].name;
    };
    std::stable_sort(
        type.by_name.begin(), type.by_name.end(),
        [&](std::size_t left, std::size_t right) { return name_of(left) < name_of(right); });
}

void description_reader::read_occurrence(const TiXmlElement& element, element_description& made) {
    const std::string least = markup::attribute(element, "minOccurs").value_or("1");
    const std::string most = markup::attribute(element, "maxOccurs").value_or("1");
    made.required = least != "0";
    if (least != "0" && least != "1") {
        xml_.tell(element, "has minOccurs=\"" + least + "\"; write 0 or 1");
    }
    if (most != "1") {
        xml_.tell(element, "has maxOccurs=\"" + most +
                               "\", and a path reaches only the first; number the elements: User1, "
                               "User2");
    }
}

void description_reader::take_default(const TiXmlElement& element, const simple_type* type,
                                      std::optional<std::string>& taken) {
    taken = markup::attribute(element, "default");
    if (!taken) {
        return;
    }
    if (type == nullptr) {
        xml_.tell(element, "has a default, and no text; leave it away");
    } else if (check_text(*type, *taken)) {
        xml_.tell(element,
                  "its default \"" + *taken + "\" is none of its values: " + type_text(*type));
    }
}

void description_reader::take_type(const TiXmlElement& element, element_description& made) {
    const auto reference = markup::attribute(element, "type");
    if (reference) {
        if (!xml_.built_in(*reference).empty()) {
            made.value = find_simple(element, *reference);
        } else if (const named_type* const found = find_type(element, *reference)) {
            made.value = found->simple;
            made.structure = found->complex;
        }
    }
    bool given = reference.has_value();
    xml_.each_child(element, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "annotation") {
            read_annotation(xml_, child, made.told);
            return true;
        }
        if ((name != "simpleType" && name != "complexType") || given) {
            return false;
        }
        given = true;
        xml_.allow(child, {});
        if (name == "simpleType") {
            made.value = make_simple(child, "");
        } else {
            made.structure = make_complex(child, "");
        }
        return true;
    });
    if (!given) {
        xml_.tell(element, "the element " + made.name + " has no type; write type=\"xs:string\"");
    }
    if (made.structure != nullptr) {
        made.value = made.structure->text;
    }
}

element_description description_reader::read_element(const TiXmlElement& element, bool is_root) {
    element_description made;
    made.line = static_cast<std::size_t>(std::max(element.Row(), 0));
    if (is_root) {
        xml_.allow(element, {"name", "type", "default"});
    } else {
        xml_.allow(element, {"name", "type", "default", "minOccurs", "maxOccurs"});
    }
    made.name = read_name(element);
    read_occurrence(element, made);
    take_type(element, made);
    take_default(element, made.value, made.default_value);
    return made;
}

std::size_t description_reader::settings_in(const complex_type& type) {
    const auto known = sizes_.find(&type);
    if (known != sizes_.end()) {
        return known->second;
    }
    std::size_t count = 1;
    for (const element_description& one : type.elements) {
        count += one.structure != nullptr ? settings_in(*one.structure) : 1;
        count = std::min(count, most_settings + 1);
    }
    sizes_.emplace(&type, count);
    return count;
}

void description_reader::read(const TiXmlElement& root) {
    if (!xml_.find_prefix(root)) {
        return;
    }
    xml_.allow(root, {"version"});
    const TiXmlElement* document = nullptr;
    xml_.each_child(root, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "simpleType" || name == "complexType") {
            note_type(child, name == "simpleType");
        } else if (name == "element") {
            if (document != nullptr) {
                xml_.tell(child, "is a second element at the top; a file describes one document");
            }
            document = document == nullptr ? &child : document;
        } else if (name == "annotation") {
            xml_.tell(child, "tells of the file as a whole; write it into the xs:element");
        } else {
            return false;
        }
        return true;
    });
    if (document == nullptr) {
        xml_.tell(root,
                  "describes no document; write <xs:element name=\"" + description_.name + "\">");
        return;
    }
    description_.root = read_element(*document, true);
    for (const auto& [name, type] : types_) {  // those that nothing uses, too
        if (!type.done) {
            static_cast<void>(find_type(*type.where, name));
        }
    }
    if (description_.root.name != description_.name && !description_.root.name.empty()) {
        xml_.tell(*document, "describes " + description_.root.name + "; write name=\"" +
                                 description_.name + "\", as the file is called");
    }
    if (description_.root.structure != nullptr &&
        settings_in(*description_.root.structure) > most_settings) {
        xml_.tell(*document, "describes more than 100000 settings");
    }
}

}  // namespace

std::unique_ptr<const document_description> read_description(const std::string& document,
                                                             const std::string& file,
                                                             std::string text,
                                                             std::vector<mistake>& mistakes) {
    TiXmlDocument source;
    std::string problem;
    std::size_t line = 0;
    if (!read_document(std::move(text), source, problem, line, TIXML_ENCODING_UTF8)) {
        mistakes.push_back({file, line, "is not read: " + problem});
        return nullptr;
    }
    auto description = std::make_unique<document_description>();
    description->name = document;
    std::vector<mistake> found;
    markup xml(file, found);
    description_reader(xml, *description).read(*source.RootElement());
    std::stable_sort(found.begin(), found.end(), [](const mistake& left, const mistake& right) {
        return left.line < right.line;
    });
    const bool good = found.empty();
    std::move(found.begin(), found.end(), std::back_inserter(mistakes));
    if (!good) {
        return nullptr;
    }
    return description;
}

}  // namespace veltrancord::schema
