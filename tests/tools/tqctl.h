// tqctl.h - runs the companion command in a test, and looks at what it said.
#pragma once

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <memory>
#include <string>

#include "support/device.h"

namespace tq_test {

// The documented exit codes.
enum Code { kDone, kRefused, kUsage, kBusy, kNotPermitted, kDamaged, kInputOutput };

// Coverage data of a program without privileges goes where it may write.
inline const std::string kNobody =
    "GCOV_PREFIX=/tmp setpriv --reuid=65534 --regid=65534 --clear-groups -- ";

inline std::string quote(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

inline CommandResult tqctl(const std::string& arguments) {
    return run_command("tqctl " + arguments);
}

struct Put {
    void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, Put>;

// Null where the text is anything but one JSON document in valid UTF-8 and a line feed.
inline Json parse(const std::string& text) {
    if (text.empty() || text.back() != '\n') return nullptr;
    json_tokener* tokener = json_tokener_new();
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    Json json(json_tokener_parse_ex(tokener, text.c_str(), static_cast<int>(text.size())));
    const bool whole = json_tokener_get_error(tokener) == json_tokener_success &&
                       json_tokener_get_parse_end(tokener) >= text.size() - 1;
    json_tokener_free(tokener);
    return whole ? std::move(json) : nullptr;
}

inline std::string member(const Json& json, const std::string& key) {
    json_object* value = nullptr;
    if (!json || !json_object_object_get_ex(json.get(), key.c_str(), &value))
        return "(no " + key + ")";
    return json_object_get_string(value);
}

inline testing::AssertionResult succeeds(const CommandResult& result, const std::string& out) {
    if (result.status == kDone && result.out == out && result.err.empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "exit code " << result.status << ", output \""
                                       << result.out << "\", diagnostics \"" << result.err << "\"";
}

inline testing::AssertionResult fails(const CommandResult& result, Code code,
                                      const std::string& diagnostic) {
    if (result.status == code && result.out.empty() &&
        result.err.find(diagnostic) != std::string::npos) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "exit code " << result.status << ", output \""
                                       << result.out << "\", diagnostics \"" << result.err << "\"";
}

}  // namespace tq_test
