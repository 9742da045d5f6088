// libveltrancord-schema: the descriptions of client/schema as <veltrancord/schema.h> has them.
#include <veltrancord/schema.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "schema/check.h"
#include "schema/description_set.h"
#include "schema/usual_directory.h"

using veltrancord::schema::element_description;
using veltrancord::schema::simple_type;
using veltrancord::schema::value_kind;

// What the texts of the last answer point into.
struct veltrancord_schema {
    explicit veltrancord_schema(std::string directory) : descriptions(std::move(directory)) {}

    veltrancord::schema::description_set descriptions;
    std::vector<std::string> texts;
    std::vector<const char*> choices;
};

namespace {

// Nothing thrown may reach a caller in C: all that can be is that memory has run out.
template <typename Call>
int32_t guarded(Call&& call) {
    try {
        return call();
    } catch (...) {
        return VELTRANCORD_NO_MEMORY;
    }
}

const char* kept(veltrancord_schema& schema, std::string_view text) {
    schema.texts.emplace_back(text);
    return schema.texts.back().c_str();
}

// Room for all texts of an answer, so that none moves while others are added.
void begin_answer(veltrancord_schema& schema, std::size_t most_texts) {
    schema.texts.clear();
    schema.choices.clear();
    schema.texts.reserve(most_texts);
}

// Whether the path's document can be asked about. Return: VELTRANCORD_OK,
// VELTRANCORD_NOT_DESCRIBED, or VELTRANCORD_UNPARSABLE with the first mistake in `reason`.
int32_t look_at_document(veltrancord_schema& schema, std::string_view path, std::string& reason) {
    if (schema.descriptions.is_described(path)) {
        return VELTRANCORD_OK;
    }
    const std::vector<std::string> components = veltrancord::schema::stored_components(path);
    const std::string file = components.empty() ? std::string() : components.front() + ".xsd";
    for (const veltrancord::schema::mistake& one : schema.descriptions.mistakes()) {
        if (one.file == file || one.file.ends_with("/" + file)) {
            reason = one.file + ":" + std::to_string(one.line) + ": " + one.text;
            return VELTRANCORD_UNPARSABLE;
        }
    }
    return VELTRANCORD_NOT_DESCRIBED;
}

void tell(veltrancord_schema& schema, veltrancord_violation* violation, const char* rule,
          std::string_view reason, std::string_view nearest) {
    begin_answer(schema, 2);
    if (violation != nullptr) {
        *violation = {rule, kept(schema, reason), kept(schema, nearest)};
    }
}

int32_t check(veltrancord_schema& schema, const char* path, const char* value,
              veltrancord_violation* violation) {
    std::string reason;
    const int32_t result = look_at_document(schema, path, reason);
    if (result != VELTRANCORD_OK) {
        tell(schema, violation, "", reason, "");
        return result;
    }
    const std::optional<veltrancord::schema::violation> found =
        veltrancord::schema::check_value(schema.descriptions, path, value);
    if (!found) {
        tell(schema, violation, "", "", "");
        return VELTRANCORD_OK;
    }
    tell(schema, violation, found->rule, veltrancord::schema::sentence_of(*found),
         found->nearest.value_or(""));
    return VELTRANCORD_NOT_ALLOWED;
}

// Whether one of two values says yes and the other no.
bool is_yes_or_no(const simple_type& type) {
    constexpr std::string_view words[] = {"yes", "no", "on", "off", "true", "false"};
    return type.values.size() == 2 &&
           std::all_of(type.values.begin(), type.values.end(), [&](const auto& one) {
               std::string word = one.value;
               std::transform(word.begin(), word.end(), word.begin(),
                              [](unsigned char c) { return std::tolower(c); });
               return std::find(std::begin(words), std::end(words), word) != std::end(words);
           });
}

veltrancord_kind kind_of(const simple_type& type) {
    switch (type.kind) {
        case value_kind::boolean:
            return VELTRANCORD_KIND_BOOLEAN;
        case value_kind::integer:
            return VELTRANCORD_KIND_INTEGER;
        case value_kind::decimal:
            return VELTRANCORD_KIND_DECIMAL;
        case value_kind::date:
            return VELTRANCORD_KIND_DATE;
        case value_kind::time:
            return VELTRANCORD_KIND_TIME;
        default:
            break;
    }
    if (type.values.empty()) {
        return VELTRANCORD_KIND_TEXT;
    }
    return is_yes_or_no(type) ? VELTRANCORD_KIND_BOOLEAN : VELTRANCORD_KIND_CHOICE;
}

std::string pattern_text(const simple_type& type) {
    std::string all;
    for (const auto& alternatives : type.patterns) {
        all += all.empty() ? "" : "\n";
        for (const auto& one : alternatives) {
            all += &one == alternatives.data() ? "" : "|";
            all += one.text();
        }
    }
    return all;
}

std::string language_of(const char* asked) {
    if (asked != nullptr && *asked != '\0') {
        return asked;
    }
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

int32_t bounded(const std::optional<std::size_t>& length) {
    return length && *length <= INT32_MAX ? static_cast<int32_t>(*length) : -1;
}

void tell_type(veltrancord_schema& schema, const simple_type& type,
               veltrancord_description& description) {
    description.kind = kind_of(type);
    description.type = kept(schema, type.name.empty() ? "xs:" + type.base_name : type.name);
    description.allowed = kept(schema, veltrancord::schema::type_text(type));
    description.minimum = kept(schema, type.least.value_or(""));
    description.maximum = kept(schema, type.most.value_or(""));
    description.pattern = kept(schema, pattern_text(type));
    description.min_length = bounded(type.min_length);
    description.max_length = bounded(type.max_length);
    for (const auto& one : type.values) {
        schema.choices.push_back(kept(schema, one.value));
    }
    description.choices = schema.choices.empty() ? nullptr : schema.choices.data();
    description.choice_count = schema.choices.size();
}

const char* attribute_value(veltrancord_schema& schema, const element_description& element,
                            const char* name) {
    const auto* const attribute = element.attribute(name);
    if (attribute == nullptr) {
        return "";
    }
    const bool only_one = attribute->type->values.size() == 1;
    return kept(schema, attribute->default_value.value_or(
                            only_one ? attribute->type->values.front().value : ""));
}

int32_t describe(veltrancord_schema& schema, const char* path, const char* language,
                 veltrancord_description& description) {
    std::string reason;
    const int32_t result = look_at_document(schema, path, reason);
    const element_description* const element =
        result == VELTRANCORD_OK ? schema.descriptions.find(path) : nullptr;
    constexpr std::size_t texts_of_one = 16;
    begin_answer(schema, texts_of_one + (element != nullptr && element->value != nullptr
                                             ? element->value->values.size()
                                             : 0));
    description = {VELTRANCORD_KIND_GROUP,
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   "",
                   nullptr,
                   0,
                   -1,
                   -1,
                   0,
                   0};
    if (element == nullptr) {
        return result == VELTRANCORD_OK ? static_cast<int32_t>(VELTRANCORD_NOT_FOUND) : result;
    }
    const std::string user = language_of(language);
    description.label = kept(schema, element->told.label(user));
    description.help = kept(schema, element->told.help(user));
    description.unit = kept(schema, element->told.unit);
    description.level = attribute_value(schema, *element, "Level");
    description.program = attribute_value(schema, *element, "DispatchW");
    description.has_default = element->default_value ? 1 : 0;
    description.default_value = kept(schema, element->default_value.value_or(""));
    description.is_secret = element->secret() ? 1 : 0;
    if (element->value != nullptr) {
        tell_type(schema, *element->value, description);
    }
    return VELTRANCORD_OK;
}

}  // namespace

int32_t veltrancord_schema_open(const char* directory, struct veltrancord_schema** schema) {
    if (schema == nullptr) {
        return VELTRANCORD_INVALID_USE;
    }
    *schema = nullptr;
    return guarded([&]() -> int32_t {
        *schema = new veltrancord_schema(directory != nullptr && *directory != '\0'
                                             ? directory
                                             : veltrancord::schema::usual_directory());
        return VELTRANCORD_OK;
    });
}

void veltrancord_schema_close(struct veltrancord_schema* schema) {
    delete schema;
}

int32_t veltrancord_schema_check(struct veltrancord_schema* schema, const char* path,
                                 const char* value, struct veltrancord_violation* violation) {
    if (violation != nullptr) {
        *violation = {"", "", ""};
    }
    if (schema == nullptr || path == nullptr || value == nullptr) {
        return VELTRANCORD_INVALID_USE;
    }
    return guarded([&] { return check(*schema, path, value, violation); });
}

int32_t veltrancord_schema_describe(struct veltrancord_schema* schema, const char* path,
                                    const char* language,
                                    struct veltrancord_description* description) {
    if (schema == nullptr || path == nullptr || description == nullptr) {
        return VELTRANCORD_INVALID_USE;
    }
    return guarded([&] { return describe(*schema, path, language, *description); });
}

int32_t veltrancord_check(const char* path, const char* value) {
    struct veltrancord_schema* schema = nullptr;
    int32_t result = veltrancord_schema_open(nullptr, &schema);
    if (result == VELTRANCORD_OK) {
        result = veltrancord_schema_check(schema, path, value, nullptr);
    }
    veltrancord_schema_close(schema);
    return result;
}
