#include "Ls/System/Io/Stream/MemoryStream.h"

namespace LS::System::IO::Stream
{
void CMemoryStream::Write(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const char*>(data);
    m_Bytes.insert(m_Bytes.end(), bytes, bytes + size);
}
} // namespace LS::System::IO::Stream
