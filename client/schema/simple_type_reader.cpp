#include "schema/simple_type_reader.h"

#include <algorithm>
#include <set>

#include "schema/check.h"
#include "schema/value.h"

namespace veltrancord::schema {
namespace {

struct built_in_row {
    std::string_view name;
    value_kind kind;
    const char* least;
    const char* most;
};

constexpr built_in_row built_in_rows[] = {
    {"string", value_kind::string, nullptr, nullptr},
    {"boolean", value_kind::boolean, nullptr, nullptr},
    {"decimal", value_kind::decimal, nullptr, nullptr},
    {"time", value_kind::time, nullptr, nullptr},
    {"date", value_kind::date, nullptr, nullptr},
    {"integer", value_kind::integer, nullptr, nullptr},
    {"nonPositiveInteger", value_kind::integer, nullptr, "0"},
    {"negativeInteger", value_kind::integer, nullptr, "-1"},
    {"nonNegativeInteger", value_kind::integer, "0", nullptr},
    {"positiveInteger", value_kind::integer, "1", nullptr},
    {"long", value_kind::integer, "-9223372036854775808", "9223372036854775807"},
    {"int", value_kind::integer, "-2147483648", "2147483647"},
    {"short", value_kind::integer, "-32768", "32767"},
    {"byte", value_kind::integer, "-128", "127"},
    {"unsignedLong", value_kind::integer, "0", "18446744073709551615"},
    {"unsignedInt", value_kind::integer, "0", "4294967295"},
    {"unsignedShort", value_kind::integer, "0", "65535"},
    {"unsignedByte", value_kind::integer, "0", "255"},
};

bool is_text(value_kind kind) {
    return kind == value_kind::string;
}

bool has_order(value_kind kind) {
    return kind != value_kind::string && kind != value_kind::boolean;
}

// The facets of one xs:restriction, on what its base allows.
class facet_reader {
  public:
    facet_reader(markup& xml, simple_type& type) : xml_(xml), base_(type), type_(type) {}

    // Return: false for what is no facet that is read.
    bool read(const TiXmlElement& facet, std::string_view name);

    // What can be told when all facets are known.
    void finish(const TiXmlElement& restriction);

  private:
    void read_enumeration(const TiXmlElement& facet, const std::string& value);
    void read_pattern(const TiXmlElement& facet, const std::string& value);
    void read_bound(const TiXmlElement& facet, const std::string& value, bool lower);
    void read_length(const TiXmlElement& facet, const std::string& value, bool lower);
    void must_suit(const TiXmlElement& facet, bool suits, std::string_view kind_of_types);
    void once(const TiXmlElement& facet, std::string_view name);

    markup& xml_;
    const simple_type base_;  // as it was before
    simple_type& type_;
    std::set<std::string, std::less<>> seen_;
    std::vector<allowed_value> values_;
    std::vector<pattern> patterns_;
};

bool facet_reader::read(const TiXmlElement& facet, std::string_view name) {
    const bool known = name == "enumeration" || name == "pattern" || name == "minInclusive" ||
                       name == "maxInclusive" || name == "minLength" || name == "maxLength";
    if (!known) {
        return false;
    }
    xml_.allow(facet, {"value"});
    const auto value = markup::attribute(facet, "value");
    if (!value) {
        xml_.tell(facet, "<" + facet.ValueStr() + "> has no value=\"...\"");
        return true;
    }
    if (name == "enumeration") {
        read_enumeration(facet, *value);
        return true;
    }
    xml_.each_child(facet, [](const TiXmlElement&, std::string_view) { return false; });
    if (name == "pattern") {
        read_pattern(facet, *value);
        return true;
    }
    once(facet, name);
    if (name == "minInclusive" || name == "maxInclusive") {
        read_bound(facet, *value, name == "minInclusive");
    } else {
        read_length(facet, *value, name == "minLength");
    }
    return true;
}

void facet_reader::once(const TiXmlElement& facet, std::string_view name) {
    if (!seen_.insert(std::string(name)).second) {
        xml_.tell(facet, "<" + facet.ValueStr() + "> stands there twice; write it once");
    }
}

void facet_reader::must_suit(const TiXmlElement& facet, bool suits,
                             std::string_view kind_of_types) {
    if (!suits) {
        xml_.tell(facet, "<" + facet.ValueStr() + "> does not go with xs:" + type_.base_name +
                             "; it goes with " + std::string(kind_of_types));
    }
}

void facet_reader::read_enumeration(const TiXmlElement& facet, const std::string& value) {
    allowed_value added{value, {}};
    xml_.each_child(facet, [&](const TiXmlElement& child, std::string_view name) {
        if (name != "annotation") {
            return false;
        }
        read_annotation(xml_, child, added.told);
        return true;
    });
    must_suit(facet, base_.kind != value_kind::boolean, "texts, numbers, times and dates");
    if (check_text(base_, value)) {
        xml_.tell(facet,
                  "\"" + value + "\" is no value of the type it restricts: " + type_text(base_));
    }
    const bool again = std::any_of(values_.begin(), values_.end(), [&](const allowed_value& one) {
        return same_value(base_.kind, one.value, value);
    });
    if (again) {
        xml_.tell(facet, "\"" + value + "\" stands there already; write it once");
    }
    values_.push_back(std::move(added));
}

void facet_reader::read_pattern(const TiXmlElement& facet, const std::string& value) {
    pattern added;
    std::string problem;
    if (added.assign(value, problem)) {
        patterns_.push_back(std::move(added));
    } else {
        xml_.tell(facet, "the pattern " + value + " " + problem);
    }
}

void facet_reader::read_bound(const TiXmlElement& facet, const std::string& value, bool lower) {
    must_suit(facet, has_order(base_.kind), "numbers, times and dates");
    if (!has_order(base_.kind)) {
        return;
    }
    const auto broken = check_text(base_, value);
    if (broken) {
        xml_.tell(facet,
                  "\"" + value + "\" is no value of the type it restricts: " + type_text(base_));
        return;
    }
    if (has_zone(base_.kind, value)) {
        xml_.tell(facet, "\"" + value + "\" has a zone; write the bound without one");
        return;
    }
    (lower ? type_.least : type_.most) = shortest_form(base_.kind, value);
}

void facet_reader::read_length(const TiXmlElement& facet, const std::string& value, bool lower) {
    must_suit(facet, is_text(base_.kind), "xs:string");
    const auto length = markup::number(value);
    if (!length) {
        xml_.tell(facet, "\"" + value + "\" is no length; write a whole number from 0 on");
        return;
    }
    const auto& former = lower ? base_.min_length : base_.max_length;
    if (former && (lower ? *length < *former : *length > *former)) {
        xml_.tell(facet, "allows more than the type it restricts, whose length is " +
                             std::to_string(*former));
    }
    (lower ? type_.min_length : type_.max_length) = length;
}

void facet_reader::finish(const TiXmlElement& restriction) {
    if (!values_.empty()) {
        type_.values = std::move(values_);
    }
    if (!patterns_.empty()) {
        type_.patterns.push_back(std::move(patterns_));
    }
    if (type_.least && type_.most && order_of(type_.kind, *type_.least, *type_.most) > 0) {
        xml_.tell(restriction, "allows nothing: its least value is above its greatest");
    }
    if (type_.min_length && type_.max_length && *type_.min_length > *type_.max_length) {
        xml_.tell(restriction, "allows nothing: its least length is above its greatest");
    }
}

void read_restriction(markup& xml, const TiXmlElement& element, const type_finder& find,
                      simple_type& type) {
    xml.allow(element, {"base"});
    const auto base = markup::attribute(element, "base");
    if (!base) {
        xml.tell(element, "has no base=\"...\"; write the type that it restricts");
        return;
    }
    const simple_type* const found = find(element, *base);
    if (found == nullptr) {
        return;
    }
    simple_type derived = *found;
    derived.name = type.name;
    derived.told = type.told;
    derived.told.secret = type.told.secret || found->told.secret;
    derived.told.unit = type.told.unit.empty() ? found->told.unit : type.told.unit;
    type = std::move(derived);
    facet_reader facets(xml, type);
    xml.each_child(element, [&](const TiXmlElement& child, std::string_view name) {
        if (name != "annotation") {
            return facets.read(child, name);
        }
        read_annotation(xml, child, type.told);
        return true;
    });
    facets.finish(element);
}

}  // namespace

std::unique_ptr<simple_type> built_in_type(std::string_view name) {
    const auto* const row = std::find_if(std::begin(built_in_rows), std::end(built_in_rows),
                                         [&](const built_in_row& one) { return one.name == name; });
    if (row == std::end(built_in_rows)) {
        return nullptr;
    }
    auto type = std::make_unique<simple_type>();
    type->base_name = name;
    type->kind = row->kind;
    type->least = row->least != nullptr ? std::optional<std::string>(row->least) : std::nullopt;
    type->most = row->most != nullptr ? std::optional<std::string>(row->most) : std::nullopt;
    return type;
}

std::string instead_of_built_in(std::string_view name) {
    if (name == "float" || name == "double") {
        return "write xs:decimal";
    }
    if (name == "gYear" || name == "gMonth" || name == "gDay") {
        return "write xs:integer with bounds";
    }
    return "write xs:string with an xs:pattern";
}

void read_simple_type(markup& xml, const TiXmlElement& element, const type_finder& find,
                      simple_type& type) {
    const std::size_t before = xml.count();
    bool restricted = false;
    xml.each_child(element, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "annotation") {
            read_annotation(xml, child, type.told);
            return true;
        }
        if (name != "restriction" || restricted) {
            return false;
        }
        restricted = true;
        read_restriction(xml, child, find, type);
        return true;
    });
    if (!restricted && xml.count() == before) {
        xml.tell(element, "says nothing; write <xs:restriction base=\"...\"> into it");
    }
}

}  // namespace veltrancord::schema
