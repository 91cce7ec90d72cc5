// Output of pppoeplusctl: JSON for scripts, aligned tables for people.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ctl {

// A JSON string literal, quotes included; bytes outside printable ASCII are
// escaped (\u00XX), so that any text the daemon holds stays valid JSON.
std::string jsonString(std::string_view text);

// A small ordered JSON object or array writer.
class Json {
  public:
    static Json object();
    static Json array();
    Json& add(const std::string& key, const std::string& value);  // a string
    Json& add(const std::string& key, const char* value);
    Json& add(const std::string& key, int64_t value);
    Json& add(const std::string& key, bool value);
    Json& addRaw(const std::string& key, const std::string& json);  // already JSON
    Json& push(const Json& value);                                  // array element
    Json& pushRaw(const std::string& json);
    Json& merge(const Json& other);  // the other object's members, after these
    std::string str() const;

  private:
    bool isArray_ = false;
    std::vector<std::string> items_;
};

// "name: value" lines with the values in one column.
void printTable(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& rows,
                const std::string& indent = "");

}  // namespace ctl
