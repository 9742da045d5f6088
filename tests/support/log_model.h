// The rules of the event log once more, for tests: written straight from what docs/eventlog.md
// promises, with lists that are walked, and without a line of the code that is tested.
#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrancord::test {

class log_model {
  public:
    explicit log_model(int32_t capacity) : max_(capacity) { restart(); }

    void write(int32_t type, int64_t seconds, int first, const std::string& detail, int second) {
        const auto when = static_cast<std::time_t>(seconds);
        std::tm t{};
        ::localtime_r(&when, &t);
        const std::string text = std::to_string(type) + ":" + std::to_string(t.tm_year + 1900) +
                                 ":" + std::to_string(t.tm_mon) + ":" + std::to_string(t.tm_mday) +
                                 ":" + std::to_string(t.tm_hour) + ":" + std::to_string(t.tm_min) +
                                 ":" + std::to_string(t.tm_sec) + ":" + std::to_string(first) +
                                 ":" + detail + ":" + std::to_string(second);
        const std::string name = element_name(next_ + 1);
        std::string* const old = find(name);
        if (old != nullptr) {
            *old = text;
        } else {
            elements_.emplace_back(name, text);
        }
        ++next_;
        if (count_ < max_) {
            count_ = next_;
        }
        if (next_ >= max_) {
            next_ = 0;
        }
    }

    // The reply's bytes.
    std::string read(int32_t mode, int32_t mask, int32_t limit) {
        int32_t step = 0;
        if (mode == 1) {
            if (next_ != 0) {
                cursor_ = next_;
            } else if (count_ == 0) {
                return "";
            } else {
                cursor_ = count_;
            }
            page_ = cursor_;
            last_ = 1;
            step = -1;
        }
        if (mode == 2) {
            if (last_ == 3) {
                cursor_ = page_ - 1;
            } else {
                const bool first_of_partial = cursor_ == 1 && count_ < max_;
                const bool first_and_last_is_next = next_ + 1 == count_ && cursor_ == 1;
                const bool next_but_one = cursor_ - 1 == next_ + 1;
                if (first_of_partial || first_and_last_is_next || next_but_one) {
                    return "";
                }
            }
            page_ = cursor_;
            last_ = 2;
            step = -1;
        }
        if (mode == 3) {
            if (last_ == 2) {
                cursor_ = page_ + 1;
            } else {
                if (next_ != 0 && (last_ == 1 || cursor_ == next_)) {
                    return "";
                }
                if (next_ == 0 && (cursor_ == count_ || last_ == 1 || cursor_ == 0)) {
                    return "";
                }
            }
            page_ = cursor_;
            last_ = 3;
            step = 1;
        }
        std::string reply;
        int32_t found = 0;
        for (int32_t pass = 0; pass < count_; ++pass) {
            const std::string* const text = find(element_name(cursor_));
            if (text == nullptr) {
                break;
            }
            const std::string record = decode(*text, mask);
            if (!record.empty()) {
                reply += record;
                ++found;
            }
            if (!move(step) || found >= limit) {
                break;
            }
        }
        return reply;
    }

    void clean() {
        elements_.clear();
        next_ = count_ = 0;
        cursor_ = page_ = -1;
    }

    void restart() {
        cursor_ = page_ = -1;
        last_ = 0;
        const auto elements = static_cast<int32_t>(elements_.size());
        if (max_ - 1 > elements) {
            count_ = next_ = elements;
            return;
        }
        count_ = max_;
        int32_t best = 1;
        std::array<int, 6> best_time{};
        for (int32_t n = 1; n <= count_; ++n) {
            const std::string* const text = find(element_name(n));
            if (text == nullptr) {
                break;
            }
            const std::vector<std::string> fields = fields_of(*text);
            if (fields.size() != 10 || std::atoi(fields[0].c_str()) == 0) {
                continue;
            }
            std::array<int, 6> time{};
            for (std::size_t i = 0; i < 6; ++i) {
                time[i] = std::atoi(fields[i + 1].c_str());
            }
            time[0] = (time[0] + 48) % 256;
            if (time >= best_time) {
                best_time = time;
                best = n;
            }
        }
        next_ = best < max_ ? best : 0;
    }

    [[nodiscard]] int32_t count() const { return count_; }

    // The elements, in the order of the file.
    [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& elements() const {
        return elements_;
    }

    // What stands between the colons of an entry's text; empty fields count for nothing.
    static std::vector<std::string> fields_of(std::string_view text) {
        std::vector<std::string> fields(1);
        for (const char c : text) {
            if (c != ':') {
                fields.back() += c;
            } else if (!fields.back().empty()) {
                fields.emplace_back();
            }
        }
        if (fields.back().empty()) {
            fields.pop_back();
        }
        return fields;
    }

  private:
    static std::string element_name(int32_t position) {
        return std::string("E").append(std::to_string(position));
    }

    std::string* find(const std::string& name) {
        for (auto& element : elements_) {
            if (element.first == name) {
                return &element.second;
            }
        }
        return nullptr;
    }

    // Empty for an entry that does not decode or that the mask leaves out.
    static std::string decode(const std::string& text, int32_t mask) {
        const std::vector<std::string> fields = fields_of(text);
        if (fields.size() != 10 || (std::atoi(fields[0].c_str()) & mask) == 0) {
            return "";
        }
        const auto byte = [&](std::size_t field, int offset = 0) {
            return std::string(1, static_cast<char>(std::atoi(fields[field].c_str()) + offset));
        };
        const auto type = static_cast<uint32_t>(std::atoi(fields[0].c_str()));
        std::string record;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            record += static_cast<char>(type >> shift & 255U);
        }
        record += byte(1, -2000) + byte(2) + byte(3) + byte(4) + byte(5) + byte(6) + byte(7);
        record += fields[8];
        record.resize(27, '\0');
        record += byte(9);
        record.resize(32, '\0');
        return record;
    }

    // False: the page ends.
    bool move(int32_t step) {
        if (step == -1) {
            if (cursor_ - 1 == next_ + 1) {
                return false;
            }
            if (cursor_ == 1) {
                if (count_ < max_ || next_ + 1 == count_) {
                    return false;
                }
                cursor_ = max_;
                return true;
            }
            --cursor_;
            return true;
        }
        if (cursor_ == next_) {
            return false;
        }
        if (cursor_ + step > max_) {
            if (count_ < max_ || next_ == 0) {
                return false;
            }
            cursor_ = 1;
            return true;
        }
        cursor_ += step;
        return true;
    }

    int32_t max_;
    int32_t count_ = 0;
    int32_t next_ = 0;
    int32_t cursor_ = -1;
    int32_t page_ = -1;
    int32_t last_ = 0;
    std::vector<std::pair<std::string, std::string>> elements_;
};

}  // namespace veltrancord::test
