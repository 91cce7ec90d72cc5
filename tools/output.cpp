// Output of pppoeplusctl.
#include "tools/output.h"

#include <algorithm>
#include <iomanip>

namespace ctl {

namespace {

// The bytes of `text` as the characters of their numbers, in UTF-8.
std::string bytesAsCharacters(const std::string& text) {
    std::string r;
    r.reserve(text.size());
    for (char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            r += ch;
        } else {
            r += static_cast<char>(0xC0 | (c >> 6));
            r += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return r;
}

void recodeStrings(Json& value) {
    if (value.is_string()) value = bytesAsCharacters(value.get_ref<const std::string&>());
    else if (value.is_structured())
        for (Json& item : value) recodeStrings(item);
}

}  // namespace

std::string jsonLine(const Json& value) {
    Json copy = value;
    recodeStrings(copy);
    // ensure_ascii: every character beyond ASCII as \uXXXX. The keys are the
    // tool's own ASCII names, so strict UTF-8 handling cannot fail.
    return copy.dump(-1, ' ', true);
}

std::string jsonString(std::string_view text) { return jsonLine(Json(std::string(text))); }

Json okWith(bool ok, const Json& fields) {
    Json o = {{"ok", ok}};
    for (const auto& [key, value] : fields.items()) o[key] = value;
    return o;
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
