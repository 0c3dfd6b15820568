#include "Ls/System/Io/Stream/MemoryStream.h"

#include <algorithm>

namespace LS::System::IO::Stream
{
void CMemoryStream::Write(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const char*>(data);
    m_Bytes.insert(m_Bytes.end(), bytes, bytes + size);
}

std::size_t CMemoryStream::Read(void* data, std::size_t size)
{
    const std::size_t count = std::min(size, m_Bytes.size() - m_Position);
    std::copy_n(m_Bytes.data() + m_Position, count, static_cast<char*>(data));
    m_Position += count;
    return count;
}

void CMemoryStream::Clear()
{
    m_Bytes.clear();
    m_Position = 0;
}
} // namespace LS::System::IO::Stream
