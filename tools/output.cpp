// Output of pppoeplusctl.
#include "tools/output.h"

#include <algorithm>
#include <iomanip>

namespace ctl {

std::string jsonString(std::string_view text) {
    std::string r = "\"";
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
            case '"': r += "\\\""; break;
            case '\\': r += "\\\\"; break;
            case '\n': r += "\\n"; break;
            case '\r': r += "\\r"; break;
            case '\t': r += "\\t"; break;
            default:
                if (c < 0x20 || c >= 0x7F) {
                    static const char digits[] = "0123456789abcdef";
                    r += "\\u00";
                    r += digits[c >> 4];
                    r += digits[c & 0xF];
                } else {
                    r += static_cast<char>(c);
                }
        }
    }
    r += "\"";
    return r;
}

Json Json::object() { return Json(); }

Json Json::array() {
    Json j;
    j.isArray_ = true;
    return j;
}

Json& Json::add(const std::string& key, const std::string& value) { return addRaw(key, jsonString(value)); }
Json& Json::add(const std::string& key, const char* value) { return addRaw(key, jsonString(value)); }
Json& Json::add(const std::string& key, int64_t value) { return addRaw(key, std::to_string(value)); }
Json& Json::add(const std::string& key, bool value) { return addRaw(key, value ? "true" : "false"); }

Json& Json::addRaw(const std::string& key, const std::string& json) {
    items_.push_back(jsonString(key) + ":" + json);
    return *this;
}

Json& Json::push(const Json& value) { return pushRaw(value.str()); }

Json& Json::merge(const Json& other) {
    items_.insert(items_.end(), other.items_.begin(), other.items_.end());
    return *this;
}

Json& Json::pushRaw(const std::string& json) {
    items_.push_back(json);
    return *this;
}

std::string Json::str() const {
    std::string r = isArray_ ? "[" : "{";
    for (size_t i = 0; i < items_.size(); i++) {
        if (i > 0) r += ",";
        r += items_[i];
    }
    r += isArray_ ? "]" : "}";
    return r;
}

void printTable(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& rows,
                const std::string& indent) {
    size_t w = 0;
    for (const auto& r : rows) w = std::max(w, r.first.size());
    for (const auto& r : rows)
        out << indent << std::left << std::setw(static_cast<int>(w + 3)) << (r.first + ":") << std::right << r.second
            << "\n";
}

}  // namespace ctl
