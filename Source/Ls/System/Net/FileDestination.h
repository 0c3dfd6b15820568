#pragma once

#include "Ls/System/Net/BodyDestination.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// A file that takes a body. Others may read it meanwhile.
class CFileDestination : public CBodyDestination
{
public:
    /// From offset 0 the file is replaced; otherwise it must exist, and everything from offset on is
    /// replaced. None, Write or DiskFull.
    HttpError Open(const std::wstring& path, std::uint64_t offset);

    HttpError Write(const void* data, std::size_t size) override;

private:
    Win32::CFileHandle m_File;
};
} // namespace LS::System::Net
