// Reading the JSON the tools print and the simulator publishes.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <optional>
#include <sstream>
#include <string>

namespace ssotest {

// text as one JSON document, or nullopt (the reader's complaint in *errors)
// when it is not one.
inline std::optional<Json::Value> TryParseJson(const std::string &text,
                                               std::string *errors = nullptr)
{
    Json::CharReaderBuilder builder;
    Json::Value value;
    std::string why;
    std::istringstream in(text);
    if (!Json::parseFromStream(builder, in, &value, &why)) {
        if (errors)
            *errors = why;
        return std::nullopt;
    }
    return value;
}

// text as one JSON document; text that is not one fails the test and gives
// a null value.
inline Json::Value ParseJson(const std::string &text)
{
    std::string errors;
    std::optional<Json::Value> value = TryParseJson(text, &errors);
    EXPECT_TRUE(value.has_value()) << errors << "\n" << text;
    return value.value_or(Json::Value());
}

} // namespace ssotest
