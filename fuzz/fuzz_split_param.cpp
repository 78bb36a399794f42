// SSOAPIUtil::SplitParam on arbitrary text and delimiter. The first byte
// gives the delimiter's length (0 to 7), the next bytes the delimiter, the
// rest the text. Joining the pieces with the delimiter must give the text
// back, there must be one piece more than delimiters, and no piece may hold
// the delimiter.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "SSOAPIUtil.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ssofuzz::SetUpPlatform();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    size_t delimiterLength = data[0] % 8;
    if (delimiterLength > size - 1)
        delimiterLength = size - 1;
    std::string delimiter = ssofuzz::AsText(data + 1, delimiterLength);
    std::string text = ssofuzz::AsText(data + 1 + delimiterLength, size - 1 - delimiterLength);

    std::vector<std::string> pieces = {"left over from an earlier call"};
    SSOAPIUtil::SplitParam(text, delimiter, pieces);
    if (pieces.empty())
        ssofuzz::Fail("SplitParam gave no piece");

    std::string joined;
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0)
            joined += delimiter;
        joined += pieces[i];
        if (!delimiter.empty() && pieces[i].find(delimiter) != std::string::npos)
            ssofuzz::Fail("a piece holds the delimiter");
    }
    if (joined != text)
        ssofuzz::Fail("the pieces do not join back into the text");

    if (delimiter.empty()) {
        if (pieces.size() != 1)
            ssofuzz::Fail("an empty delimiter split the text");
        return 0;
    }
    // Non-overlapping occurrences, leftmost first: what the split consumed.
    size_t count = 0;
    for (size_t at = text.find(delimiter); at != std::string::npos;
         at = text.find(delimiter, at + delimiter.size()))
        ++count;
    if (pieces.size() != count + 1)
        ssofuzz::Fail("not one piece more than delimiters");
    return 0;
}
