#pragma once

#include "Ls/System/Io/Stream/MemoryStream.h"
#include "Ls/System/Net/BodyDestination.h"

namespace LS::System::Net
{
/// The response stream: a body kept in memory.
class CStreamDestination : public CBodyDestination
{
public:
    /// An answer that is read into memory is a few hundred bytes of XML. An endless one must not eat the
    /// process, and nothing legitimate comes near this.
    static constexpr std::size_t MostBytes = 16 * 1024 * 1024;

    /// The bytes are appended to stream, which must outlive this.
    explicit CStreamDestination(IO::Stream::CMemoryStream& stream) : m_Stream(stream) {}

    HttpError Write(const void* data, std::size_t size) override;

private:
    IO::Stream::CMemoryStream& m_Stream;
};
} // namespace LS::System::Net
