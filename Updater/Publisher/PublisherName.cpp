#include "Updater/Publisher/PublisherName.h"

#include <algorithm>
#include <string>

bool SubjectNamesPublisher(std::string_view subject, std::span<const std::string_view> publishers)
{
    std::string component;
    const auto isAccepted = [&] {
        return std::find(publishers.begin(), publishers.end(), component) != publishers.end();
    };

    bool quoted = false;
    for (std::size_t i = 0; i < subject.size(); ++i)
    {
        const char c = subject[i];
        const char next = i + 1 < subject.size() ? subject[i + 1] : '\0';
        if (c == '"')
        {
            if (quoted && next == '"')
            {
                component += c;
                ++i;
            }
            else
                quoted = !quoted;
        }
        else if (c == ',' && !quoted)
        {
            if (next != ' ')
                return false;
            ++i;
            if (isAccepted())
                return true;
            component.clear();
        }
        else
            component += c;
    }
    return !quoted && isAccepted();
}
