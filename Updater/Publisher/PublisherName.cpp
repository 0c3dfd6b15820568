#include "Updater/Publisher/PublisherName.h"

#include <algorithm>
#include <string>

namespace
{
template <class Character>
bool NamesPublisher(std::basic_string_view<Character> subject, std::span<const std::string_view> publishers)
{
    std::basic_string<Character> component;
    const auto isAccepted = [&] {
        return std::any_of(publishers.begin(), publishers.end(), [&](std::string_view publisher) {
            return std::equal(component.begin(), component.end(), publisher.begin(), publisher.end());
        });
    };

    bool quoted = false;
    for (std::size_t i = 0; i < subject.size(); ++i)
    {
        const Character c = subject[i];
        const Character next = i + 1 < subject.size() ? subject[i + 1] : Character();
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
} // namespace

bool SubjectNamesPublisher(std::string_view subject, std::span<const std::string_view> publishers)
{
    return NamesPublisher(subject, publishers);
}

bool SubjectNamesPublisher(std::wstring_view subject, std::span<const std::string_view> publishers)
{
    return NamesPublisher(subject, publishers);
}
