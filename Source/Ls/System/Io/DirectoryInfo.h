#pragma once

#include "Ls/System/Io/FileSystemInfo.h"

namespace LS::System::IO
{
/// A folder, which need not exist. The constructor throws CException "Path was too long :" or "Path
/// contains invalid characters".
class CDirectoryInfo : public CFileSystemInfo
{
public:
    explicit CDirectoryInfo(const std::wstring& path);
};
} // namespace LS::System::IO
