#include "Updater/Fetch/PatchPath.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Fetch/StaleFiles.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

#include <shlobj.h>

using LS::System::CExitCodeException;

namespace
{
/// Value of a hexadecimal digit; -1 for another character.
int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

/// Nobody but an attacker makes a link there for a run that follows none.
void RefuseLink(const std::wstring& path)
{
    if (!LS::System::IO::LinkInWay(path))
        return;
    LS_LOG_FAILURE(L"GetDataDir() : A link stands in the way : %s", path.c_str());
    throw CExitCodeException(ExitCodes::NoDataFolder);
}
} // namespace

std::wstring GetDataDir(const std::wstring& productName)
{
    wchar_t appData[261] = {};
    // S_FALSE: the user has such a folder, but it isn't there, and its name isn't always given.
    if (::SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, appData) != S_OK)
    {
        LS_LOG_FAILURE("SHGetFolderPath failure");
        throw CExitCodeException(ExitCodes::NoDataFolder);
    }

    std::wstring folder = appData;
    for (const std::wstring& level : {std::wstring(L"Larkspur"), std::wstring(L"Updater"), productName})
    {
        folder += L"\\" + level;
        RefuseLink(folder);
        ::CreateDirectoryW(folder.c_str(), nullptr);
    }
    RefuseLink(folder); // whatever has come up meanwhile
    return folder + L"\\";
}

bool IsPatchFileName(std::wstring_view fileName, bool isBlueStacks) noexcept
{
    if (!LS::System::IO::IsPlainFileName(fileName))
        return false;
    return LS::System::IO::HasEnding(fileName, L".exe") ||
           (isBlueStacks && LS::System::IO::HasEnding(fileName, L".msi"));
}

void SetupFilePathAndName(const std::wstring& productName, bool isBlueStacks, std::wstring& patchPath,
                          const std::string& url)
{
    const std::wstring fileName = PatchFileName(url);
    // The server chooses the name, but neither the folder nor what the shell makes of the file: a separator,
    // a colon, a device and the like would put it elsewhere; a signed program that is called a script is run
    // as one, and a library would lie where the patch and Park look for theirs. No name, which would be the
    // folder itself, is none of a patch either.
    if (!IsPatchFileName(fileName, isBlueStacks))
    {
        LS_LOG_INFO(L"SetupFilePathAndName() : Not a patch's file name, throwing out : %s", fileName.c_str());
        LS_LOG_FAILURE("IsPatchFileName failed");
        throw CExitCodeException(ExitCodes::FetchFailed);
    }

    const std::wstring folder = GetDataDir(productName);
    patchPath = folder + fileName;
    using namespace LS::System::Net::MultiStreamDownload;
    for (const std::wstring& path : {patchPath, CacheFilePath(patchPath), StateFilePath(patchPath),
                                     StreamFilePath(patchPath, 0), StreamFilePath(patchPath, 1)})
        RefuseLink(path);
    DeleteStaleFiles(folder, fileName);
    // What someone else still looks at gets the ending of an unfinished download, which nobody runs.
    const DWORD error = LS::System::IO::CFile::FreeName(patchPath, L".exe.cache");
    if (error != ERROR_SUCCESS)
    {
        ::SetLastError(error); // the mark reports it
        CRunAnalytics::ErrorEvent(L"DeletePrevDL", L"NA");
        LS_LOG_INFO("SetupFilePathAndName() : Failed to delete old patch file, throwing out");
        LS_LOG_FAILURE("DeleteFile failed");
        throw CExitCodeException(ExitCodes::OldPatchNotDeleted);
    }
}

std::string PercentDecode(std::string_view text)
{
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool mayBeCode = text[i] == '%' && text.size() - i > 2;
        const int high = mayBeCode ? HexDigit(text[i + 1]) : -1;
        const int low = mayBeCode ? HexDigit(text[i + 2]) : -1;
        if (high >= 0 && low >= 0)
        {
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        }
        else
            decoded += text[i];
    }
    return decoded;
}

std::wstring PatchFileName(std::string_view url)
{
    const std::string decoded = PercentDecode(url);
    std::string_view name = std::string_view(decoded).substr(0, decoded.find('?'));
    const auto slash = name.rfind('/');
    if (slash != std::string_view::npos)
        name.remove_prefix(slash + 1);

    // This is the runtime's own conversion in the "C" locale, which the program never leaves; done here, it
    // doesn't end at a null.
    std::wstring wide;
    for (const char c : name)
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return wide;
}
