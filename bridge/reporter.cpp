#include "reporter.h"

#include <algorithm>
#include <utility>

#include "digest.h"
#include "service_settings.h"

namespace veltrancord::bridge {

reporter::reporter(veltrancord_client& client, const configuration& settings)
    : client_(client), settings_(settings) {
    std::vector<std::string> names = settings.reported.documents();
    for (std::string& one : settings.writable.documents()) {
        if (std::find(names.begin(), names.end(), one) == names.end()) {
            names.push_back(std::move(one));
        }
    }
    for (std::string& one : names) {
        if (!is_barred(one)) {
            documents_.push_back({std::move(one), true, 0, {}});
        }
    }
}

void reporter::mark(std::string_view document) {
    for (told_document& one : documents_) {
        one.due = one.due || one.name == document;
    }
}

void reporter::mark_all(bool anew) {
    for (told_document& one : documents_) {
        one.due = true;
        if (anew) {
            one.hash.clear();
        }
    }
}

std::optional<int64_t> reporter::due_in(int64_t now) const {
    std::optional<int64_t> least;
    for (const told_document& one : documents_) {
        if (one.due) {
            const int64_t left = std::max<int64_t>(0, one.not_before - now);
            least = std::min(least.value_or(left), left);
        }
    }
    return least;
}

std::optional<document_report> reporter::next(int64_t now) {
    for (told_document& one : documents_) {
        if (!one.due || now < one.not_before) {
            continue;
        }
        std::string text;
        constexpr int64_t in_a_second = 1000;
        one.not_before = now + settings_.report_interval * in_a_second;
        if (read_report(client_, settings_, one.name, text) < 0) {
            continue;
        }
        one.due = false;
        std::string hash = digest_of(text);
        if (hash != one.hash) {
            one.hash = std::move(hash);
            return document_report{one.name, "hash=" + one.hash + "\n\n" + text};
        }
    }
    return std::nullopt;
}

}  // namespace veltrancord::bridge
