#include "Ls/System/Net/StreamDestination.h"

#include <new>

namespace LS::System::Net
{
HttpError CStreamDestination::Write(const void* data, std::size_t size)
{
    if (size > MostBytes - m_Stream.Length())
        return HttpError::Write;
    try
    {
        m_Stream.Write(data, size);
    }
    catch (const std::bad_alloc&)
    {
        return HttpError::Write;
    }
    return HttpError::None;
}
} // namespace LS::System::Net
