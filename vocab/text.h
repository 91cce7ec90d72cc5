// Small text helpers of pppoeplusctl: case, names, blanks, lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vocab {

std::string lower(std::string_view s);
// Lower case without '-', '_' and blanks: "Circuit-Id_Type" and "circuitidtype" meet.
std::string normalName(std::string_view s);
// "0x3E80002".
std::string hex(uint32_t v);
// The non-empty pieces of `s` between any of `seps`.
std::vector<std::string> split(const std::string& s, const std::string& seps);
// Without blanks and tabs at both ends.
std::string trim(const std::string& s);
// The daemon's text output ends its lines in "\r\n"; a terminal wants "\n".
std::string plainLines(const std::string& s);
// `text` in lines of at most `width` characters, each starting with `indent`.
std::string wrap(const std::string& text, const std::string& indent, size_t width);

}  // namespace vocab
