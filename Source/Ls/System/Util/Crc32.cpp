#include "Ls/System/Util/Crc32.h"

#include <array>

namespace LS::System::Util
{
namespace
{
constexpr std::uint32_t Polynomial = 0xEDB88320u;

constexpr std::array<std::uint32_t, 256> MakeTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i)
    {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) ? (value >> 1) ^ Polynomial : value >> 1;
        table[i] = value;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> Table = MakeTable();
} // namespace

std::uint32_t Crc32(const void* data, std::size_t size) noexcept
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i)
        crc = Table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}
} // namespace LS::System::Util
