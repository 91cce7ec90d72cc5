// Output of pppoeplusctl: JSON for scripts, aligned tables for people.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace ctl {

// JSON values whose members keep the order they were added in.
using Json = nlohmann::ordered_json;

// One line of JSON text for `value`. Each byte of a string counts as one
// character (U+0000 to U+00FF) and everything outside printable ASCII is
// escaped (\u00XX), so that any text the daemon holds, whatever its bytes,
// gives valid JSON from which a reader gets every byte back.
std::string jsonLine(const Json& value);
// A JSON string literal of `text`, quotes included, escaped as jsonLine does.
std::string jsonString(std::string_view text);

// {"ok": ok} followed by the members of `fields` (an object).
Json okWith(bool ok, const Json& fields);

// "name: value" lines with the values in one column.
void printTable(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& rows,
                const std::string& indent = "");

}  // namespace ctl
