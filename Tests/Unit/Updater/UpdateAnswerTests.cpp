#include "Updater/Query/GetPatchURL.h"
#include "Updater/Query/UpdateAnswer.h"

#include <doctest/doctest.h>

using namespace std::string_literals;

TEST_CASE("the patch URL is picked out of the answer, or the fault is named")
{
    const std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
    const struct
    {
        std::string Answer;
        std::int32_t Code;
        std::string URL;
    } table[] = {
        {xml + "<string xmlns=\"http://x/\">http://x/y.exe</string>", 0, "http://x/y.exe"},
        {xml + "<string>http://x/y.exe</string>", 0, "http://x/y.exe"},
        {xml + "<string>http://x/?a&amp;amp;b</string>", 0, "http://x/?a&amp;amp;b"},
        {xml + "<string> \r\n u </string>", 0, " \r\n u "},
        {xml + "<string></string>", 0, ""},
        {xml + "<string xmlns=\"http://x/\" />", 0, ""},
        {xml + "<string/>", 0, ""},
        {xml + "<a><string>one</string><string>two</string></a>", 0, "one"},
        // "<string>" is looked for first, wherever it stands.
        {xml + "<string a=\"1\">one</string><string>two</string>", 0, "two"},
        {xml + "<strings>one</strings>", 0, "one"},
        {xml + "<string>a<b/>c</string>", 0, "a<b/>c"},
        {xml + "<string>a<b/>c", 0, ""},
        {xml + "<string>"s + '\0' + "a</string>", 0, "\0a"s},
        {"<?xml<string>u</", 0, "u"},
        {"", 773, ""},
        {"<?xm", 773, ""},
        {"\xEF\xBB\xBF" + xml + "<string>u</string>", 773, ""},
        {"\r\n" + xml + "<string>u</string>", 773, ""},
        {"<?XML?><string>u</string>", 773, ""},
        {"<html>not found</html>", 773, ""},
        {xml, 774, ""},
        {xml + "<String>u</String>", 774, ""},
        {xml + "<string", 775, ""},
        {xml + "<string xmlns=\"http://x/\"", 775, ""},
        {xml + "<string>http://x/y.exe", 776, ""},
        {xml + "<string a=\"1\">http://x/y.exe<", 776, ""},
    };
    for (const auto& one : table)
    {
        CAPTURE(one.Answer);
        std::string url = one.Code == 0 ? "before" : "";
        CHECK(ParseUpdateAnswer(one.Answer, url) == one.Code);
        CHECK(url == one.URL);
    }
}

TEST_CASE("the query's URL escapes nothing and names the throttle only when it is off")
{
    CHECK(UpdateQueryURL("h:81", {L"PlayDeck", "2.1.0.7", "", "", true}) ==
          "http://h:81/Update.asmx/GetUpdate2?parameters=AppName:PlayDeck|Version:2.1.0.7");
    CHECK(UpdateQueryURL("h", {L"A &|\u00E9", "0", "", "", false}) ==
          "http://h/Update.asmx/GetUpdate2?parameters=AppName:A &|\xC3\xA9|Version:0|throttle:0");
}
