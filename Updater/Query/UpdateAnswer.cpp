#include "Updater/Query/UpdateAnswer.h"

#include "Updater/Run/ExitCodes.h"

std::int32_t ParseUpdateAnswer(std::string_view answer, std::string& patchURL)
{
    constexpr auto none = std::string_view::npos;
    if (answer.substr(0, 5) != "<?xml")
        return ExitCodes::QueryNoXmlDeclaration;

    auto tag = answer.find("<string>");
    if (tag == none)
        tag = answer.find("<string"); // with attributes
    if (tag == none)
        return ExitCodes::QueryNoStringElement;

    const auto tagEnd = answer.find('>', tag);
    if (tagEnd == none)
        return ExitCodes::QueryBadStringNode;

    const auto value = tagEnd + 1;
    const auto valueEnd = answer.find("</", value);
    if (valueEnd != none)
    {
        patchURL = answer.substr(value, valueEnd - value);
        return 0;
    }
    // A start tag that closes itself has its "/>" before the place where a value would begin.
    if (answer.find("/>", tag) != none)
    {
        patchURL.clear();
        return 0;
    }
    return ExitCodes::QueryBadStringValue;
}
