// One JSON style for the command-line tools (docs/json-output.md): one
// compact document a line on stdout, UTF-8 as it is, snake_case member names,
// null where a value is unknown or absent, numbers as numbers.
#pragma once

#include <json/value.h>
#include <json/writer.h>

#include <cstdio>
#include <string>

namespace ssotools {

inline std::string JsonLine(const Json::Value &value)
{
    Json::StreamWriterBuilder writer;
    writer["emitUTF8"] = true;
    writer["indentation"] = "";
    return Json::writeString(writer, value);
}

// Writes the document and a line feed, flushed at once: a reader that
// follows a stream (watch, log --follow) sees each line as it happens.
inline void PrintJson(const Json::Value &value, std::FILE *out = stdout)
{
    std::fputs(JsonLine(value).c_str(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

// An empty text is "no value" in the tools' plain output ('-'), and null in
// their JSON.
inline Json::Value TextOrNull(const std::string &text)
{
    return text.empty() ? Json::Value() : Json::Value(text);
}

} // namespace ssotools
