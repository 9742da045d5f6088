#include "schema/check.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "schema/value.h"

namespace veltrancord::schema {
namespace {

// The nearest of `names`, where one is near: a third of its letters may differ.
template <typename Names, typename NameOf>
std::optional<std::string> nearest_name(const Names& names, std::string_view wanted,
                                        NameOf name_of) {
    std::optional<std::string> nearest;
    unsigned least = static_cast<unsigned>(wanted.size() * 4 / 3 + 4);
    for (const auto& one : names) {
        const std::string name = name_of(one);
        const unsigned apart = distance(name, wanted);
        if (apart < least) {
            least = apart;
            nearest = name;
        }
    }
    return nearest;
}

std::optional<std::string> nearest_child(const element_description& element,
                                         std::string_view wanted) {
    if (element.structure == nullptr) {
        return std::nullopt;
    }
    return nearest_name(element.structure->elements, wanted,
                        [](const element_description& one) { return client_name(one.name); });
}

std::optional<std::string> nearest_attribute(const element_description& element,
                                             std::string_view wanted) {
    if (element.structure == nullptr) {
        return std::nullopt;
    }
    return nearest_name(element.structure->attributes, wanted,
                        [](const attribute_description& one) { return one.name; });
}

// `name` of `path` is not described.
violation undescribed_element(const element_description& around, const std::string& path,
                              const std::string& name) {
    violation found;
    found.path = path + "." + name;
    found.rule = rule::undescribed;
    const auto nearest = nearest_child(around, name);
    if (nearest) {
        found.nearest = path + "." + *nearest;
    }
    return found;
}

std::optional<violation> check_element_text(const element_description& element,
                                            const std::string& path, const std::string& text) {
    if (element.value == nullptr) {
        if (text.empty()) {
            return std::nullopt;
        }
        violation found;
        found.path = path;
        found.rule = rule::no_text;
        found.value = text;
        found.secret = element.secret();
        return found;
    }
    if (text.empty() && element.default_value) {
        return std::nullopt;
    }
    auto found = check_text(*element.value, text);
    if (found) {
        found->path = path;
        found->secret = element.secret();
    }
    return found;
}

std::optional<violation> check_attribute_text(const element_description& element,
                                              const std::string& path, std::string_view name,
                                              const std::string& text) {
    const attribute_description* const described = element.attribute(name);
    std::optional<violation> found;
    if (described != nullptr) {
        found = check_text(*described->type, text);
    } else {
        found.emplace();
        found->rule = rule::undescribed;
        found->value = text;
        found->nearest = nearest_attribute(element, name);
    }
    if (found) {
        found->path = path;
        found->attribute = name;
    }
    return found;
}

std::string joined(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "." + name;
}

class document_check {
  public:
    void walk(const TiXmlElement& element, const element_description& description,
              const std::string& path);

    std::vector<violation> take() {
        std::stable_sort(
            found_.begin(), found_.end(),
            [](const violation& left, const violation& right) { return left.line < right.line; });
        return std::move(found_);
    }

    void add(std::optional<violation> one, const TiXmlNode& where) {
        if (one) {
            one->line = static_cast<std::size_t>(std::max(where.Row(), 0));
            found_.push_back(*std::move(one));
        }
    }

  private:
    void check_attributes(const TiXmlElement& element, const element_description& description,
                          const std::string& path);
    void check_children(const TiXmlElement& element, const element_description& description,
                        const std::string& path);
    void check_presence(const TiXmlElement& element, const element_description& description,
                        const std::string& path,
                        const std::set<const element_description*>& present);
    void add(const char* broken, const std::string& path, const TiXmlElement& where) {
        violation one;
        one.path = path;
        one.rule = broken;
        add(std::move(one), where);
    }

    std::vector<violation> found_;
};

void document_check::check_attributes(const TiXmlElement& element,
                                      const element_description& description,
                                      const std::string& path) {
    for (const TiXmlAttribute* one = element.FirstAttribute(); one != nullptr; one = one->Next()) {
        add(check_attribute_text(description, path, one->Name(), one->ValueStr()), element);
    }
    if (description.structure == nullptr) {
        return;
    }
    for (const attribute_description& one : description.structure->attributes) {
        if (one.required && element.Attribute(one.name.c_str()) == nullptr) {
            violation missing;
            missing.path = path;
            missing.attribute = one.name;
            missing.rule = rule::missing;
            missing.allowed = type_text(*one.type);
            add(std::move(missing), element);
        }
    }
}

void document_check::check_children(const TiXmlElement& element,
                                    const element_description& description,
                                    const std::string& path) {
    std::set<const element_description*> present;
    const element_description* last = nullptr;
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        const std::string name = client_name(child->ValueStr());
        const element_description* const known = description.child(child->ValueStr());
        if (known == nullptr) {
            add(undescribed_element(description, path, name), *child);
            continue;
        }
        const std::string inner = joined(path, name);
        if (!present.insert(known).second) {
            add(rule::twice, inner, *child);
        } else if (description.structure->ordered && last != nullptr && known < last) {
            add(rule::order, inner, *child);
        } else {
            last = known;
        }
        walk(*child, *known, inner);
    }
    check_presence(element, description, path, present);
}

void document_check::check_presence(const TiXmlElement& element,
                                    const element_description& description, const std::string& path,
                                    const std::set<const element_description*>& present) {
    if (description.structure == nullptr) {
        return;
    }
    for (const element_description& one : description.structure->elements) {
        if (one.required && present.count(&one) == 0) {
            add(rule::missing, joined(path, client_name(one.name)), element);
        }
    }
}

void document_check::walk(const TiXmlElement& element, const element_description& description,
                          const std::string& path) {
    std::string text;
    for (const TiXmlNode* node = element.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        text += node->ToText() != nullptr ? node->ValueStr() : "";
    }
    check_attributes(element, description, path);
    // A text that is only made of elements' surroundings is none: the library has left it out.
    add(check_element_text(description, path, text), element);
    check_children(element, description, path);
}

const char* sentence_of_rule(const char* broken) {
    struct row {
        const char* broken;
        const char* text;
    };
    static constexpr row rows[] = {
        {rule::undescribed, "is not described"},
        {rule::missing, "is missing, and has to be there"},
        {rule::no_text, "holds a text, and has place for elements alone"},
        {rule::twice, "stands there twice"},
        {rule::order, "stands behind what it has to precede"},
    };
    const auto* const found = std::find_if(std::begin(rows), std::end(rows), [&](const row& one) {
        return std::string_view(one.broken) == broken;
    });
    return found != std::end(rows) ? found->text : nullptr;
}

}  // namespace

std::string sentence_of(const violation& one) {
    const std::string subject = one.attribute.empty() ? "" : "its attribute " + one.attribute + " ";
    const char* const fixed = sentence_of_rule(one.rule);
    std::string text = subject;
    if (fixed != nullptr) {
        text += fixed;
    } else {
        text += one.secret ? "has to be " : "is \"" + one.value + "\", and has to be ";
        text += one.allowed;
    }
    if (one.nearest && !one.secret) {
        text += fixed != nullptr ? "; is " + *one.nearest + " meant?"
                                 : "; the nearest is " + *one.nearest;
    }
    return text;
}

std::optional<violation> check_value(description_set& set, std::string_view path,
                                     const std::string& value) {
    const std::vector<std::string> names = stored_components(path);
    const document_description* const document =
        names.empty() ? nullptr : set.document(names.front());
    if (document == nullptr) {
        return std::nullopt;
    }
    const element_description* element = &document->root;
    std::string way = client_name(names.front());
    for (std::size_t at = 1; at < names.size(); ++at) {
        const element_description* const next = element->child(names[at]);
        if (next == nullptr) {
            violation found = undescribed_element(*element, way, client_name(names[at]));
            for (std::size_t rest = at + 1; rest < names.size(); ++rest) {
                found.path += "." + client_name(names[rest]);
                if (found.nearest) {
                    *found.nearest += "." + client_name(names[rest]);
                }
            }
            found.value = value;
            return found;
        }
        element = next;
        way += "." + client_name(names[at]);
    }
    return check_element_text(*element, way, value);
}

std::optional<violation> check_attribute(description_set& set, std::string_view path,
                                         std::string_view attribute, const std::string& value) {
    const element_description* const element = set.find(path);
    if (element == nullptr) {
        return check_value(set, path, "");  // the place itself is not described, or nothing is
    }
    return check_attribute_text(*element, std::string(path), attribute, value);
}

std::vector<violation> check_document(const document_description& description,
                                      const TiXmlElement& root) {
    document_check check;
    if (root.ValueStr() == description.root.name) {
        check.walk(root, description.root, client_name(description.name));
    } else {
        violation found;
        found.path = client_name(root.ValueStr());
        found.rule = rule::undescribed;
        found.nearest = client_name(description.name);
        check.add(std::move(found), root);
    }
    return check.take();
}

std::vector<violation> check_documents(description_set& set, const TiXmlElement& all) {
    std::vector<violation> found;
    for (const TiXmlElement* one = all.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        const document_description* const description = set.document(one->ValueStr());
        if (description != nullptr) {
            std::vector<violation> added = check_document(*description, *one);
            std::move(added.begin(), added.end(), std::back_inserter(found));
        }
    }
    return found;
}

std::vector<default_setting> defaults_of(const document_description& document) {
    std::vector<default_setting> defaults;
    for (const described_setting& one : settings_of(document)) {
        if (one.element->default_value) {
            defaults.push_back({one.path, *one.element->default_value});
        }
    }
    return defaults;
}

}  // namespace veltrancord::schema
