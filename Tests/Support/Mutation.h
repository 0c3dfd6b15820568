#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace Tests
{
/// What every parser of hostile input must stand.
constexpr unsigned MutationRounds = 100000;

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
            const std::size_t kind = below(4);
            if (kind == 0)
                text.insert(at, piece);
            else if (kind == 1)
                text.erase(at, below(20));
            else if (kind == 2)
                text.replace(at, std::min(piece.size(), text.size() - at), piece);
            else
                text.insert(at, text.substr(below(text.size()), below(20)));
        }
        if (!check(text))
            return false;
    }
    return true;
}

/// The same in 100,000 rounds for a check that also tells, by its second argument, when a text was taken for
/// good: some must be, and not all.
template <class Check>
bool SurvivesMutations(const std::string& original, const std::vector<std::string>& pieces, Check check)
{
    unsigned good = 0;
    return SurvivesMutations(original, pieces, MutationRounds,
                             [&](const std::string& text) {
                                 bool isGood = false;
                                 const bool survived = check(text, isGood);
                                 good += isGood ? 1 : 0;
                                 return survived;
                             }) &&
           good > 0 && good < MutationRounds;
}
} // namespace Tests
