#include "schema/description.h"

#include <strings.h>

#include <algorithm>
#include <map>

namespace veltrancord::schema {
namespace {

std::string_view main_part(std::string_view language) {
    return language.substr(0, language.find_first_of("-_.@"));
}

bool same_letters(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view text_in(const std::vector<localised_text>& texts, std::string_view language) {
    const auto find = [&texts](std::string_view wanted) {
        return std::find_if(texts.begin(), texts.end(), [&](const localised_text& one) {
            return same_letters(main_part(one.language), main_part(wanted));
        });
    };
    auto found = find(language);
    found = found != texts.end() ? found : find("en");
    found = found != texts.end() ? found : texts.begin();
    return found != texts.end() ? std::string_view(found->text) : std::string_view();
}

// Whether a client's byte stands in a document's name as it is.
bool stands_as_is(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '*';
}

int digit_value(char digit) {
    return digit >= '0' && digit <= '9'   ? digit - '0'
           : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10
           : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10
                                          : -1;
}

std::string counted(std::size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string length_text(const simple_type& type) {
    const auto& least = type.min_length;
    const auto& most = type.max_length;
    if (least && most) {
        return *least == *most
                   ? " of " + counted(*least, "character")
                   : " of " + std::to_string(*least) + " to " + counted(*most, "character");
    }
    return least  ? " of at least " + counted(*least, "character")
           : most ? " of at most " + counted(*most, "character")
                  : "";
}

std::string range_text(const simple_type& type) {
    if (type.least && type.most) {
        return " from " + *type.least + " to " + *type.most;
    }
    return type.least ? " from " + *type.least + " on" : type.most ? " up to " + *type.most : "";
}

std::string enumeration_text(const std::vector<allowed_value>& values) {
    constexpr std::size_t most_shown = 20;
    std::string text = values.size() == 1 ? "only " : "one of ";
    for (std::size_t at = 0; at < std::min(values.size(), most_shown); ++at) {
        const std::string& value = values[at].value;
        text += at > 0 ? ", " : "";
        text += value.empty() ? "\"\"" : value;
    }
    return values.size() > most_shown
               ? text + " and " + std::to_string(values.size() - most_shown) + " more"
               : text;
}

void append_settings(const element_description& element, const std::string& path,
                     std::vector<described_setting>& settings) {
    const complex_type* const structure = element.structure;
    const bool has_children = structure != nullptr && !structure->elements.empty();
    if (element.value != nullptr || !has_children) {
        settings.push_back({path, &element});
    }
    for (std::size_t at = 0; has_children && at < structure->elements.size(); ++at) {
        const element_description& child = structure->elements[at];
        append_settings(child, path + "." + client_name(child.name), settings);
    }
}

}  // namespace

std::string_view notes::label(std::string_view language) const {
    return text_in(labels, language);
}

std::string_view notes::help(std::string_view language) const {
    return text_in(helps, language);
}

bool element_description::secret() const {
    return told.secret || (value != nullptr && value->told.secret) ||
           same_letters(name, "Password");
}

const element_description* element_description::child(std::string_view stored_name) const {
    if (structure == nullptr) {
        return nullptr;
    }
    const std::vector<element_description>& elements = structure->elements;
    const std::vector<std::size_t>& order = structure->by_name;
    const auto found = std::lower_bound(
        order.begin(), order.end(), stored_name,
        [&](std::size_t index, std::string_view wanted) { return elements[index].name < wanted; });
    return found != order.end() && elements[*found].name == stored_name ? &elements[*found]
                                                                        : nullptr;
}

const attribute_description* element_description::attribute(std::string_view attribute_name) const {
    if (structure == nullptr) {
        return nullptr;
    }
    const auto found =
        std::find_if(structure->attributes.begin(), structure->attributes.end(),
                     [&](const attribute_description& one) { return one.name == attribute_name; });
    return found != structure->attributes.end() ? &*found : nullptr;
}

bool split_number(std::string_view name, std::string_view& base, uint32_t& number) {
    constexpr std::size_t most_digits = 9;
    const std::size_t end = name.find_last_not_of("0123456789");
    if (end == std::string_view::npos || end + 1 == name.size()) {
        return false;
    }
    const std::string_view digits = name.substr(end + 1);
    if (digits.size() > most_digits || (digits.size() > 1 && digits.front() == '0')) {
        return false;
    }
    base = name.substr(0, end + 1);
    number = 0;
    for (const char digit : digits) {
        number = number * 10 + static_cast<uint32_t>(digit - '0');
    }
    return true;
}

std::vector<family> families_of(const complex_type& type) {
    std::vector<family> found;
    std::map<std::string_view, std::size_t> places;
    for (const element_description& one : type.elements) {
        std::string_view base;
        uint32_t number = 0;
        if (!split_number(one.name, base, number)) {
            continue;
        }
        const auto [place, is_new] = places.try_emplace(base, found.size());
        if (is_new) {
            found.push_back({std::string(base), number, number, {}});
        }
        family& mine = found[place->second];
        mine.first = std::min(mine.first, number);
        mine.last = std::max(mine.last, number);
        mine.members.push_back(&one);
    }
    std::erase_if(found, [](const family& one) {
        return one.members.size() < 2 || (one.first > 1 && one.members.size() < 3);
    });
    for (family& one : found) {
        const auto number_of = [](const element_description* member) {
            std::string_view base;
            uint32_t number = 0;
            return split_number(member->name, base, number) ? number : 0;
        };
        std::sort(one.members.begin(), one.members.end(), [&](const auto* left, const auto* right) {
            return number_of(left) < number_of(right);
        });
    }
    return found;
}

std::vector<described_setting> settings_of(const document_description& document) {
    std::vector<described_setting> settings;
    append_settings(document.root, client_name(document.name), settings);
    return settings;
}

std::string type_text(const simple_type& type) {
    if (!type.values.empty()) {
        return enumeration_text(type.values);
    }
    if (!type.patterns.empty() && !type.told.labels.empty()) {
        return std::string(type.told.label("en"));  // what is told of it says more than a pattern
    }
    std::string text;
    switch (type.kind) {
        case value_kind::string:
            text = "a text" + length_text(type);
            break;
        case value_kind::boolean:
            text = "one of true, false, 1, 0";
            break;
        case value_kind::integer:
            text = "a whole number" + range_text(type);
            break;
        case value_kind::decimal:
            text = "a number" + range_text(type);
            break;
        case value_kind::time:
            text = "a time such as 18:30:00" + range_text(type);
            break;
        case value_kind::date:
            text = "a date such as 2024-02-29" + range_text(type);
            break;
    }
    const char* joint = " that matches ";
    for (const std::vector<pattern>& step : type.patterns) {
        for (const pattern& one : step) {
            text += joint + one.text();
            joint = " or ";
        }
        joint = " and ";
    }
    return text;
}

std::string client_name(std::string_view stored_name) {
    std::string name;
    for (std::size_t at = 0; at < stored_name.size(); ++at) {
        const bool may_be_escape = stored_name[at] == '_' && stored_name.size() - at > 2;
        const int high = may_be_escape ? digit_value(stored_name[at + 1]) : -1;
        const int low = may_be_escape ? digit_value(stored_name[at + 2]) : -1;
        if (high >= 0 && low >= 0) {
            name += static_cast<char>(high * 16 + low);
            at += 2;
        } else {
            name += stored_name[at] == '+' ? ' ' : stored_name[at];
        }
    }
    return name;
}

std::string stored_name(std::string_view client_name) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string name;
    for (const char byte : client_name) {
        if (stands_as_is(byte)) {
            name += byte;
        } else {
            name += '_';
            name += digits[static_cast<unsigned char>(byte) >> 4U];
            name += digits[static_cast<unsigned char>(byte) & 15U];
        }
    }
    return name;
}

}  // namespace veltrancord::schema
