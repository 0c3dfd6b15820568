#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace Tests
{
/// Calls check with the text after one to eight insertions, deletions, replacements and repetitions, half of
/// them with pieces that mean something in it; the same texts in every run. False as soon as check
/// refuses one.
template <class Check>
bool SurvivesMutations(const std::string& original, const std::vector<std::string>& pieces, unsigned rounds,
                       Check check)
{
    std::mt19937 random(20261114);
    const auto below = [&](std::size_t limit) {
        return static_cast<std::size_t>(random()) % std::max<std::size_t>(limit, 1);
    };
    for (unsigned round = 0; round < rounds; ++round)
    {
        std::string text = original;
        for (std::size_t change = below(8) + 1; change > 0; --change)
        {
            const std::size_t at = below(text.size() + 1);
            const std::string piece =
                below(2) == 0 ? pieces[below(pieces.size())] : std::string(1, static_cast<char>(random()));
            switch (below(4))
            {
            case 0:
                text.insert(at, piece);
                break;
            case 1:
                text.erase(at, below(20));
                break;
            case 2:
                text.replace(at, std::min(piece.size(), text.size() - at), piece);
                break;
            default:
                text.insert(at, text.substr(below(text.size()), below(20)));
                break;
            }
        }
        if (!check(text))
            return false;
    }
    return true;
}
} // namespace Tests
