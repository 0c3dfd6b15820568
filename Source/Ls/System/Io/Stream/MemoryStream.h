#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace LS::System::IO::Stream
{
/// Growable byte buffer with a 64-bit length. Not for use by two threads at once.
class CMemoryStream
{
public:
    /// Appends at the end. Throws std::bad_alloc.
    void Write(const void* data, std::size_t size);

    std::uint64_t Length() const noexcept { return m_Bytes.size(); }
    /// All bytes; good until the next Write.
    std::string_view View() const noexcept { return {m_Bytes.data(), m_Bytes.size()}; }

private:
    std::vector<char> m_Bytes;
};
} // namespace LS::System::IO::Stream
