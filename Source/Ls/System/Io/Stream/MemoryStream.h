#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace LS::System::IO::Stream
{
/// Growable byte buffer with a 64-bit length and a reading position. Not for use by two threads at once.
class CMemoryStream
{
public:
    /// Appends at the end. Throws std::bad_alloc.
    void Write(const void* data, std::size_t size);
    /// Copies up to size bytes from the reading position and advances it; returns how many (0 at the end).
    std::size_t Read(void* data, std::size_t size);
    void Rewind() { m_Position = 0; }
    void Clear();

    std::uint64_t Length() const { return m_Bytes.size(); }
    std::string_view View() const { return {m_Bytes.data(), m_Bytes.size()}; }

private:
    std::vector<char> m_Bytes;
    std::size_t m_Position = 0;
};
} // namespace LS::System::IO::Stream
