#include "eventlog/stored_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <span>
#include <string>

#include "leaf/decimal_number.h"
#include "leaf/owned_fd.h"
#include "store/document_set.h"

namespace veltrancord {

namespace {

constexpr const char* push_gate_file = "/tmp/alert_notify";
constexpr std::string_view definition_name = "Def";

// The number n of an element "Def<n>", written without a sign and leading zeros.
std::optional<int32_t> definition_number(std::string_view name) {
    if (!name.starts_with(definition_name)) {
        return std::nullopt;
    }
    const std::string_view digits = name.substr(definition_name.size());
    int32_t number = 0;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (parsed.ec != std::errc() || number < 1 || std::to_string(number) != digits) {
        return std::nullopt;
    }
    return number;
}

// Every element with a path of those names, since a look-up may backtrack into any of them.
template <class Visitor>
void for_each_element(TiXmlNode& within, std::span<const char* const> names, const Visitor& visit) {
    for (TiXmlElement* element = within.FirstChildElement(names.front()); element != nullptr;
         element = element->NextSiblingElement(names.front())) {
        if (names.size() == 1) {
            visit(*element);
        } else {
            for_each_element(*element, names.subspan(1), visit);
        }
    }
}

}  // namespace

std::string_view stored_notification_settings::value(std::string_view path) {
    return ReadXmlValue(path, value_) > 0 ? value_.text : std::string_view();
}

std::vector<int32_t> stored_notification_settings::definitions(int32_t highest) {
    std::vector<int32_t> numbers;
    XmlDocument* const document = FindXmlDoc("Notification");
    if (document == nullptr || highest < 1) {
        return numbers;
    }
    constexpr std::array<const char*, 3> table = {"Notification", "Log", "BitDefine"};
    for_each_element(*document, table, [&](const TiXmlElement& definitions) {
        for (const TiXmlElement* element = definitions.FirstChildElement(); element != nullptr;
             element = element->NextSiblingElement()) {
            const std::optional<int32_t> number = definition_number(element->ValueStr());
            if (number && *number <= highest) {
                numbers.push_back(*number);
            }
        }
    });
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

int32_t stored_notification_settings::push_gate() {
    return read_number_file(push_gate_file);
}

int32_t read_number_file(const char* path) {
    // Opening a FIFO would wait for a writer otherwise.
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 256> text;
    const ssize_t length = file ? ::read(file.get(), text.data(), text.size()) : 0;
    return length > 0 ? decimal_number({text.data(), static_cast<std::size_t>(length)}) : 0;
}

}  // namespace veltrancord
