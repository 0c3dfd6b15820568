#pragma once

#include <cstddef>
#include <cstdint>

namespace LS::System::Util
{
/// The standard CRC-32 (reflected polynomial 0xEDB88320, start 0xFFFFFFFF, final complement).
std::uint32_t Crc32(const void* data, std::size_t size) noexcept;
} // namespace LS::System::Util
