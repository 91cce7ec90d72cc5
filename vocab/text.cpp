// Small text helpers of pppoeplusctl.
#include "vocab/text.h"

#include <cctype>
#include <sstream>

namespace vocab {

std::string lower(std::string_view s) {
    std::string r(s);
    for (char& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

std::string normalName(std::string_view s) {
    std::string r;
    for (char c : s) {
        if (c == '-' || c == '_' || c == ' ') continue;
        r += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return r;
}

std::string hex(uint32_t v) {
    std::ostringstream s;
    s << "0x" << std::uppercase << std::hex << v;
    return s.str();
}

std::vector<std::string> split(const std::string& s, const std::string& seps) {
    std::vector<std::string> out;
    std::string cur;
    for (char c : s) {
        if (seps.find(c) != std::string::npos) {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

std::string plainLines(const std::string& s) {
    std::string r;
    r.reserve(s.size());
    for (size_t i = 0; i < s.size(); i++) {
        if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') continue;
        r += s[i];
    }
    return r;
}

std::string wrap(const std::string& text, const std::string& indent, size_t width) {
    std::string out, line;
    for (const std::string& word : split(text, " ")) {
        if (!line.empty() && indent.size() + line.size() + 1 + word.size() > width) {
            out += indent + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    if (!line.empty()) out += indent + line + "\n";
    return out;
}
}  // namespace vocab
