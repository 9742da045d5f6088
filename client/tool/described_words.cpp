#include "described_words.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "description.h"

namespace veltrancord::tool {
namespace {

constexpr int64_t most_numbers = 20;  // that are offered one by one

std::optional<int64_t> number_of(const std::optional<std::string>& text) {
    int64_t number = 0;
    if (!text) {
        return std::nullopt;
    }
    const auto parsed = std::from_chars(text->data(), text->data() + text->size(), number);
    return parsed.ec == std::errc() && parsed.ptr == text->data() + text->size()
               ? std::optional(number)
               : std::nullopt;
}

// Whole numbers from the least to the greatest, where they are few; the difference of two that far
// apart would not fit.
void add_few_numbers(const schema::simple_type& type, std::vector<described_word>& words) {
    const std::optional<int64_t> least = number_of(type.least);
    const std::optional<int64_t> most = number_of(type.most);
    if (type.kind != schema::value_kind::integer || !least || !most || *least < INT32_MIN ||
        *most > INT32_MAX || *most - *least >= most_numbers) {
        return;
    }
    for (int64_t number = *least; number <= *most; ++number) {
        words.push_back({std::to_string(number), ""});
    }
}

}  // namespace

std::vector<described_word> described_paths(context& tool, const std::string& parent) {
    std::vector<described_word> words;
    if (parent.empty()) {
        for (const std::string& name : tool.descriptions().documents()) {
            const schema::element_description* const document = tool.descriptions().find(name);
            if (document != nullptr) {
                words.push_back({name + ".", label_of(*document)});
            }
        }
        return words;
    }
    const schema::element_description* const element = tool.descriptions().find(parent);
    if (element == nullptr || element->structure == nullptr) {
        return words;
    }
    for (const schema::element_description& one : element->structure->elements) {
        const std::string path = parent + "." + schema::client_name(one.name);
        words.push_back({one.value != nullptr ? path : path + ".", label_of(one)});
    }
    return words;
}

std::vector<described_word> described_values(context& tool, const std::string& path) {
    std::vector<described_word> words;
    const schema::element_description* const element = tool.descriptions().find(path);
    if (element == nullptr || element->value == nullptr || element->secret()) {
        return words;
    }
    const schema::simple_type& type = *element->value;
    for (const schema::allowed_value& one : type.values) {
        std::string meaning(one.told.label(user_language()));
        if (element->default_value == one.value) {
            meaning += meaning.empty() ? "the default" : ", the default";
        }
        words.push_back({one.value, std::move(meaning)});
    }
    if (!type.values.empty()) {
        return words;
    }
    if (element->default_value) {
        words.push_back({*element->default_value, "the default"});
    }
    if (type.kind == schema::value_kind::boolean) {
        words.push_back({"true", ""});
        words.push_back({"false", ""});
    }
    if (type.least) {
        words.push_back({*type.least, "the least"});
    }
    if (type.most) {
        words.push_back({*type.most, "the greatest"});
    }
    add_few_numbers(type, words);
    return words;
}

}  // namespace veltrancord::tool
