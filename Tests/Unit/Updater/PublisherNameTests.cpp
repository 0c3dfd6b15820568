// Which subject names are accepted. Real signatures are in the end-to-end tests.
#include "Updater/Publisher/PublisherName.h"

#include <doctest/doctest.h>

TEST_CASE("a subject is accepted by one whole component, letter by letter")
{
    constexpr std::string_view publishers[] = {
        "2.5.4.10=Larkspur Inc.",
        "2.5.4.10=Larkspur, Inc.",
        "2.5.4.10=Larkspur Inc",
    };
    const struct
    {
        std::string_view Subject;
        bool Accepted;
    } table[] = {
        {"2.5.4.10=Larkspur Inc.", true},
        {"2.5.4.10=Larkspur Inc", true},
        {"2.5.4.6=US, 2.5.4.8=WA, 2.5.4.10=\"Larkspur, Inc.\", 2.5.4.3=x", true},
        {"2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\"", true},
        {"2.5.4.10=Lark\"spur\" Inc", true}, // quotes anywhere are only quotes
        {"", false},
        {"2.5.4.10=Larkspur, Inc.", false}, // unquoted: two components
        {"2.5.4.10=\"Larkspur, Inc\"", false},
        {"2.5.4.10=LARKSPUR INC.", false},
        {"2.5.4.10=Larkspur Inc.x", false},
        {" 2.5.4.10=Larkspur Inc.", false},
        {"2.5.4.10=Larkspur Inc. ", false},
        {"2.5.4.3=Larkspur Inc.", false},
        {"2.5.4.3=\"a, 2.5.4.10=Larkspur Inc.\"", false},
        {"2.5.4.3=a + 2.5.4.10=Larkspur Inc.", false},
        {"2.5.4.3=\"\"\"\", 2.5.4.10=Larkspur Inc", true}, // a value that is one quote
        {"2.5.4.3=\"a\"\", 2.5.4.10=Larkspur Inc", false}, // doubled, so still open
        {"2.5.4.10=\"Larkspur \"\"Inc.\"\"\"", false},
        {"2.5.4.3=a,2.5.4.10=Larkspur Inc.", false},
        {"2.5.4.10=Larkspur Inc.,2.5.4.3=a", false},
        {"2.5.4.10=Larkspur Inc.,", false},
        {"2.5.4.10=Larkspur Inc., ", true},
        {"2.5.4.3=a,  2.5.4.10=Larkspur Inc.", false}, // the second blank belongs to the component
        {"2.5.4.10=\"Larkspur Inc.", false},
        {"2.5.4.10=Larkspur Inc., 2.5.4.3=\"open", true}, // accepted before the fault
        {"2.5.4.3=\"open, 2.5.4.10=Larkspur Inc.", false},
        {std::string_view("2.5.4.10=Larkspur Inc.\0x", 24), false},
        {std::string_view("2.5.4.10=Larkspur Inc.\0", 23), false},
    };
    for (const auto& one : table)
    {
        CAPTURE(one.Subject);
        CHECK(SubjectNamesPublisher(one.Subject, publishers) == one.Accepted);
    }
    CHECK(!SubjectNamesPublisher("2.5.4.10=Larkspur Inc.", {}));
}
