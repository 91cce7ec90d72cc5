// Value words: what the operator types, what the daemon holds.
#include "vocab/values.h"

#include <cstring>

#include "platform/number.h"
#include "platform/types.h"
#include "vocab/text.h"

namespace vocab {

namespace {

const char* const DEBUG_WORDS[4] = {"startup", "dump", "trace", "error"};

}  // namespace

std::string acceptedWords(ValueType type) {
    switch (type) {
        case ValueType::Truth: return "on or off (also true/false, yes/no, enable/disable), or a number (1 on, 2 off)";
        case ValueType::Policy: return "default, keep, drop or replace, or a number (0 to 3)";
        case ValueType::FormatType: return "default, userdefine or ascii, or a number (0 to 2)";
        case ValueType::Debug:
            return "none, all, or startup, dump, trace, error joined by commas, or a number (0x0 to 0xF)";
        case ValueType::Number:
        case ValueType::Counter:
        case ValueType::Nsr: return "a number, decimal or 0x hexadecimal";
        case ValueType::Text: return "a text";
        case ValueType::Ignored: return "anything (the value is not used)";
        case ValueType::NumberOrDefault: return "a number, decimal or 0x hexadecimal, or default";
    }
    return "";
}

ParsedWord parseValue(ValueType type, const std::string& text) {
    ParsedWord r;
    auto ok = [&r](uint32_t v) {
        r.ok = true;
        r.value = v;
        return r;
    };
    if (type == ValueType::Ignored) return ok(0);
    if (type != ValueType::Debug) {
        if (auto n = numberParseU32(text)) return ok(*n);
    }
    const std::string w = lower(trim(text));
    switch (type) {
        case ValueType::Truth:
            if (w == "on" || w == "true" || w == "yes" || w == "enable" || w == "enabled" || w == "zel_true")
                return ok(ZEL_TRUE);
            if (w == "off" || w == "false" || w == "no" || w == "disable" || w == "disabled" || w == "zel_false")
                return ok(ZEL_FALSE);
            break;
        case ValueType::Policy:
            if (w == "default") return ok(0);
            if (w == "keep") return ok(1);
            if (w == "drop") return ok(2);
            if (w == "replace") return ok(3);
            break;
        case ValueType::FormatType:
            if (w == "default") return ok(0);
            if (w == "userdefine" || w == "user-define" || w == "user") return ok(1);
            if (w == "ascii") return ok(2);
            break;
        case ValueType::Debug: {
            std::vector<std::string> parts = split(w, ",+| ");
            if (parts.empty()) break;
            uint32_t v = 0;
            bool good = true;
            for (const std::string& p : parts) {
                if (auto n = numberParseU32(p)) v |= *n;
                else if (p == "none" || p == "off") v |= 0;
                else if (p == "all") v |= 0xF;
                else if (p == "startup") v |= 0x1;
                else if (p == "dump" || p == "dumps") v |= 0x2;
                else if (p == "trace" || p == "traces" || p == "event" || p == "events") v |= 0x4;
                else if (p == "error" || p == "errors") v |= 0x8;
                else good = false;
            }
            if (good) return ok(v);
            break;
        }
        case ValueType::NumberOrDefault:
            if (w == "default") return ok(VALUE_DEFAULT);
            break;
        default: break;
    }
    r.error = "invalid value '" + text + "': expected " + acceptedWords(type);
    return r;
}

std::string valueWord(ValueType type, uint32_t value) {
    switch (type) {
        case ValueType::Truth:
            if (value == ZEL_TRUE) return "on";
            if (value == ZEL_FALSE) return "off";
            if (value == 0) return "unset";
            return "unknown (" + std::to_string(value) + ")";
        case ValueType::Policy: {
            static const char* const w[] = {"default", "keep", "drop", "replace"};
            if (value < 4) return w[value];
            return "unknown (" + std::to_string(value) + ")";
        }
        case ValueType::FormatType: {
            static const char* const w[] = {"default", "userdefine", "ascii"};
            if (value < 3) return w[value];
            return "unknown (" + std::to_string(value) + ")";
        }
        case ValueType::Debug: {
            std::string words;
            for (int b = 0; b < 4; b++) {
                if ((value & (1u << b)) == 0) continue;
                if (!words.empty()) words += ",";
                words += DEBUG_WORDS[b];
            }
            if ((value & ~0xFu) != 0) words += words.empty() ? "other" : ",other";
            if (words.empty()) words = "none";
            return hex(value) + " (" + words + ")";
        }
        case ValueType::NumberOrDefault:
            if (value == VALUE_DEFAULT) return "default";
            return std::to_string(value);
        default: return std::to_string(value);
    }
}

std::optional<NsrInfo> nsrFromBytes(const std::vector<uint8_t>& bytes) {
    if (bytes.size() < 12) return std::nullopt;
    NsrInfo n;
    std::memcpy(&n.switchover, bytes.data(), 4);
    std::memcpy(&n.incompleteOp, bytes.data() + 4, 4);
    std::memcpy(&n.allOp, bytes.data() + 8, 4);
    return n;
}

}  // namespace vocab
