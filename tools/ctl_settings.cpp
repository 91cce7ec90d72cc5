// pppoeplusctl: the global settings' get, set and sync.
#include "tools/runner.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "generated/pppoeplus_version.h"
#include "mgmt/mgmt_codes.h"
#include "platform/number.h"
#include "platform/types.h"
#include "tools/metrics.h"
#include "vocab/text.h"

namespace ctl {

int Runner::getValue(const CommandInfo& c, std::optional<uint32_t> unit, Value& v) {
    cmdp::CallReply reply;
    if (c.owner == Owner::Platform) {
        // The platform's own settings: through the control service.
        Json req{{"op", "get"}, {"name", nameOf(c)}};
        if (unit) req["if"] = resolver_.nameOf(*unit);
        Json answer;
        if (int rc = control(req, answer); rc != 0) return rc;
        if (!answer.value("ok", false) || !answer.contains("value") || !answer["value"].is_number_unsigned()) {
            v.result = cmdp::ERR_UNSUPPORTED;
            v.text = answer.value("error", "no value");
            v.json = nullptr;
            return 0;
        }
        reply.lenWord = answer["value"].get<uint32_t>();
    } else {
        cmdp::CallRequest req;
        req.code = mapRows(unit.has_value()).get;
        req.unit = unit.value_or(0);
        req.cmd = c.code;
        if (c.type == ValueType::Text) {
            req.valueKind = cmdp::VALUE_STR;
            req.capacity = TEXT_CAPACITY;
            req.lenWord = TEXT_CAPACITY;
        } else if (c.type == ValueType::Nsr) {
            req.valueKind = cmdp::VALUE_STR;
            req.capacity = NSR_CAPACITY;
            req.lenWord = NSR_CAPACITY;
        } else {
            req.valueKind = cmdp::VALUE_U32;
        }
        if (int rc = exchange(req, reply); rc != 0) return rc;
    }
    v.result = reply.result;
    if (reply.result != 0) return 0;
    switch (c.type) {
        case ValueType::Text: {
            std::string t(reply.data.begin(), reply.data.end());
            v.text = t;
            v.json = t;
            break;
        }
        case ValueType::Nsr: {
            auto n = nsrFromBytes(reply.data);
            if (!n) {
                v.text = "(" + std::to_string(reply.data.size()) + " bytes)";
                v.json = nullptr;
                break;
            }
            v.text = "switchover " + valueWord(ValueType::Truth, n->switchover) + ", incompleteOp " +
                     std::to_string(n->incompleteOp) + ", allOp " + std::to_string(n->allOp);
            v.json = {{"switchover", valueWord(ValueType::Truth, n->switchover)},
                      {"incompleteOp", n->incompleteOp},
                      {"allOp", n->allOp}};
            break;
        }
        case ValueType::Number:
        case ValueType::Counter:
        case ValueType::Ignored:
            v.text = std::to_string(reply.lenWord);
            v.json = reply.lenWord;
            break;
        case ValueType::NumberOrDefault:
            // A number, or the word default (with the number held as raw).
            v.text = valueWord(c.type, reply.lenWord);
            if (reply.lenWord == VALUE_DEFAULT) {
                v.json = v.text;
                v.raw = reply.lenWord;
            } else {
                v.json = reply.lenWord;
            }
            break;
        case ValueType::Debug: {
            v.text = valueWord(c.type, reply.lenWord);
            std::string words = v.text.substr(v.text.find('(') + 1);
            words.pop_back();
            v.json = words;
            v.raw = reply.lenWord;
            break;
        }
        default:
            v.text = valueWord(c.type, reply.lenWord);
            v.json = v.text;
            v.raw = reply.lenWord;
            break;
    }
    return 0;
}

int Runner::showOne(const CommandInfo& c, std::optional<uint32_t> unit, Json fields) {
    Value v;
    if (int rc = getValue(c, unit, v); rc != 0) return rc;
    fields["name"] = nameOf(c);
    fields["code"] = c.code;
    if (v.result != 0) return answered(v.result, ResultSource::Daemon, "", fields);
    if (json_) printJson(withValue(okWith(true, fields), v));
    else out_ << nameOf(c) << ": " << v.text << "\n";
    return EXIT_OK;
}

int Runner::cmdGet(const std::vector<std::string>& a) {
    if (a.size() > 2) return usage({"get takes at most one name", "get"});
    if (a.size() == 2) {
        auto c = findScalar(a[1]);
        if (!c) return usage({"unknown global name '" + a[1] + "'", "names"});
        what_ = "get " + nameOf(*c);
        return showOne(*c, std::nullopt, {{"scope", "global"}});
    }
    what_ = "get";
    std::vector<std::pair<std::string, std::string>> rows;
    Json values = Json::object(), raws = Json::object(), errors = Json::object();
    bool anyError = false;
    for (const CommandInfo& c : scalarCommands()) {
        Value v;
        if (int rc = getValue(c, std::nullopt, v); rc != 0) return rc;
        if (v.result != 0) {
            anyError = true;
            rows.emplace_back(c.name, resultText(v.result));
            errors[c.name] = resultText(v.result);
            continue;
        }
        rows.emplace_back(c.name, v.text);
        values[c.name] = v.json;
        if (!v.raw.is_null()) raws[c.name] = v.raw;
    }
    if (json_) {
        Json o = {{"ok", !anyError}, {"scope", "global"}, {"values", values}};
        if (!raws.empty()) o["raw"] = raws;
        if (anyError) o["errors"] = errors;
        printJson(o);
    } else {
        printTable(out_, rows);
    }
    if (anyError) {
        err_ << "pppoeplusctl: get: some values could not be read\n";
        return EXIT_RESULT;
    }
    return EXIT_OK;
}

int Runner::doSet(const CommandInfo& c, std::optional<uint32_t> unit, const std::string& label,
                  const std::vector<std::string>& valueArgs, bool sync) {
    const std::string verb = sync ? "sync" : "set";
    what_ = (unit ? "if " + label + " " : std::string()) + verb + " " + nameOf(c);
    cmdp::CallRequest req;
    req.code = sync ? (unit ? PPPOEPLUS_FUNC_IF_SYNC : PPPOEPLUS_FUNC_SCALAR_SYNC) : mapRows(unit.has_value()).set;
    req.unit = unit.value_or(0);
    req.cmd = c.code;
    std::string shown;
    Json raw;  // the number sent, for a value word
    if (c.type == ValueType::Text) {
        std::string text;
        for (size_t i = 0; i < valueArgs.size(); i++) text += (i ? " " : "") + valueArgs[i];
        if (text.size() > cmdp::MAX_VALUE) {
            return answered(ZEL_ERR_TOO_LONG, ResultSource::Daemon,
                            std::to_string(text.size()) + " bytes; a request carries at most " +
                                std::to_string(cmdp::MAX_VALUE),
                            Json::object());
        }
        req.valueKind = cmdp::VALUE_STR;
        req.data.assign(text.begin(), text.end());
        req.lenWord = static_cast<uint32_t>(text.size());
        req.capacity = static_cast<uint32_t>(text.size());
        shown = text;
    } else {
        if (c.type == ValueType::Ignored) {
            if (valueArgs.size() > 1) return usage({nameOf(c) + " takes at most one value", unit ? "if" : verb});
        } else if (valueArgs.size() != 1) {
            return usage({verb + " " + nameOf(c) + " takes one value: " + acceptedWords(c.type), unit ? "if" : verb});
        }
        ParsedWord w = parseValue(c.type, valueArgs.empty() ? std::string() : valueArgs[0]);
        if (!w.ok) return usage({nameOf(c) + ": " + w.error, unit ? "if" : verb});
        if (c.owner == Owner::Platform) {
            if (sync) return usage({nameOf(c) + " is a setting of the platform: set it, there is no sync", verb});
            Json req{{"op", "set"}, {"name", nameOf(c)}, {"value", w.value}};
            if (unit) req["if"] = resolver_.nameOf(*unit);
            Json answer;
            if (int rc = control(req, answer); rc != 0) return rc;
            Json j = unit ? ifScope(*unit) : Json{{"scope", "global"}};
            j["action"] = verb;
            j["name"] = nameOf(c);
            j["value"] = valueWord(c.type, w.value);
            if (!answer.value("ok", false)) return controlRefused(answer, j);
            if (json_) printJson(okWith(true, j));
            else out_ << (unit ? label + ": " : std::string()) << nameOf(c) << " set to " << valueWord(c.type, w.value) << "\n";
            return EXIT_OK;
        }
        req.valueKind = cmdp::VALUE_U32;
        req.lenWord = w.value;
        raw = w.value;
        shown = valueWord(c.type, w.value);
    }
    cmdp::CallReply reply;
    if (int rc = exchange(req, reply); rc != 0) return rc;
    Json j = unit ? ifScope(*unit) : Json{{"scope", "global"}};
    j["action"] = verb;
    j["name"] = nameOf(c);
    j["code"] = c.code;
    j["value"] = shown;
    if (!raw.is_null()) j["raw"] = raw;
    if (reply.result != 0) return answered(reply.result, ResultSource::Daemon, "", j);
    if (json_) {
        printJson(okWith(true, j));
    } else if (c.type == ValueType::Ignored) {
        out_ << (unit ? label + ": " : std::string()) << nameOf(c) << " done\n";
    } else {
        out_ << (unit ? label + ": " : std::string()) << nameOf(c) << (sync ? " synced to " : " set to ") << shown
             << "\n";
    }
    return EXIT_OK;
}

int Runner::cmdSet(const std::vector<std::string>& a, bool sync) {
    const std::string verb = sync ? "sync" : "set";
    if (a.size() < 2) return usage({verb + " needs a name and a value", verb});
    auto c = findScalar(a[1]);
    if (!c) return usage({"unknown global name '" + a[1] + "'", "names"});
    std::vector<std::string> values(a.begin() + 2, a.end());
    if (values.empty() && c->type != ValueType::Ignored) return usage({verb + " " + nameOf(*c) + " needs a value", verb});
    return doSet(*c, std::nullopt, "", values, sync);
}

}  // namespace ctl
