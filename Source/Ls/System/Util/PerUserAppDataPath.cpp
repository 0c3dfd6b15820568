#include "Ls/System/Util/PerUserAppDataPath.h"

#include "Ls/System/ThrowException.h"

#include <windows.h>

#include <shlobj.h>

namespace LS::System::Util
{
std::wstring GetPerUserAppDataPath()
{
    wchar_t path[MAX_PATH] = {};
    if (!::SHGetSpecialFolderPathW(nullptr, path, CSIDL_APPDATA, TRUE))
    {
        ThrowException(CException(L"SHGetSpecialFolderPath() failed for CSIDL_APPDATA", LS_HERE));
        return {};
    }
    std::wstring text = path;
    if (!text.empty() && text.back() == L'\\') // redirected to the root of a drive
        text.pop_back();
    return text;
}
} // namespace LS::System::Util
