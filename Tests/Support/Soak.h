#pragma once

#include <cstdlib>
#include <cstring>

namespace Tests
{
/// Number of rounds of a long loop: the full one under `./test.sh --soak` (LS_SOAK=1), else the short one.
inline unsigned Loops(unsigned shortCount, unsigned fullCount)
{
    const char* soak = std::getenv("LS_SOAK");
    return soak && std::strcmp(soak, "1") == 0 ? fullCount : shortCount;
}
} // namespace Tests
