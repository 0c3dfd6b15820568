#pragma once

#include <doctest/doctest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace Tests
{
/// What a parser made of a text.
enum class Verdict
{
    Refused,
    Taken,
    Wrong ///< what it must never make of any text
};

struct Parser
{
    std::string Name;
    /// Good texts to begin with, and pieces that mean something in them.
    std::vector<std::string> Seeds, Pieces;
    std::function<Verdict(const std::string& text)> Judge;
};

/// The text after one to eight insertions, deletions, replacements and repetitions.
inline std::string Mutated(std::string text, const std::vector<std::string>& pieces, std::mt19937& random)
{
    const auto below = [&](std::size_t limit) {
        return static_cast<std::size_t>(random()) % std::max<std::size_t>(limit, 1);
    };
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
    return text;
}

/// Judges so many mutations, the same in every run: none may be wrong, some must be taken and some refused,
/// or the mutations miss what the parser decides.
inline void CheckParser(const Parser& parser, unsigned rounds)
{
    const auto begin = std::chrono::steady_clock::now();
    std::mt19937 random(20261114);
    unsigned taken = 0;
    for (unsigned round = 0; round < rounds; ++round)
    {
        std::string text = Mutated(parser.Seeds[round % parser.Seeds.size()], parser.Pieces, random);
        const Verdict verdict = parser.Judge(text);
        taken += verdict == Verdict::Taken ? 1 : 0;
        if (verdict == Verdict::Wrong)
        {
            std::replace_if(
                text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '~');
            FAIL_CHECK(parser.Name << ", round " << round << ": " << text);
            return;
        }
    }
    const auto time = std::chrono::steady_clock::now() - begin;
    MESSAGE(parser.Name << ": " << taken << " of " << rounds << " taken, "
                        << std::chrono::duration_cast<std::chrono::milliseconds>(time).count() << " ms");
    CHECK_MESSAGE(taken > 0, parser.Name);
    CHECK_MESSAGE(taken < rounds, parser.Name);
}
} // namespace Tests
