#include "Ls/System/Io/DirectoryInfo.h"

#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/ThrowException.h"

#include <algorithm>

namespace LS::System::IO
{
CDirectoryInfo::CDirectoryInfo(const std::wstring& path) : CFileSystemInfo(path)
{
    if (path.size() > MaxPathLength)
        ThrowException(CException(L"Path was too long :" + path, LS_HERE));
    else if (std::any_of(path.begin(), path.end(), IsInvalidPathCharacter))
        ThrowException(CException(L"Path contains invalid characters", LS_HERE));
}
} // namespace LS::System::IO
