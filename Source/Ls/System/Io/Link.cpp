#include "Ls/System/Io/Link.h"

#include "Ls/System/Io/Path.h"

#include <array>
#include <string_view>

namespace LS::System::IO
{
namespace
{
/// With the terminator; a longer path counts as one with a link.
constexpr DWORD LongestPath = 2048;

struct Root
{
    std::wstring Folder;
    /// Its path as the system names it, free of links.
    std::wstring Final;
};

/// Filled before other threads exist, and never freed: they may still be at work when the process ends.
std::array<const Root*, 2> g_Roots{};

/// Null when the rule doesn't hold for the path.
const Root* RootOf(std::wstring_view path) noexcept
{
    for (const Root* root : g_Roots)
    {
        const std::size_t size = root ? root->Folder.size() : 0;
        if (root && path.size() > size && path[size] == L'\\' &&
            IsSameName(path.substr(0, size), root->Folder))
            return root;
    }
    return nullptr;
}

using Buffer = std::array<wchar_t, LongestPath>;

/// The system takes several separators for one, and names its paths with one. Empty for a path that is too
/// long.
std::wstring_view WithSingleSeparators(const std::wstring& path, Buffer& buffer) noexcept
{
    if (path.size() >= buffer.size())
        return {};
    std::size_t size = 0;
    for (const wchar_t character : path)
    {
        if (character != L'\\' || size == 0 || buffer[size - 1] != L'\\')
            buffer[size++] = character;
    }
    return {buffer.data(), size};
}

/// Empty when it can't be told.
std::wstring_view FinalPath(HANDLE file, Buffer& buffer) noexcept
{
    const DWORD length = ::GetFinalPathNameByHandleW(file, buffer.data(), LongestPath, FILE_NAME_NORMALIZED);
    return {buffer.data(), length < LongestPath ? length : 0};
}

/// Whether the opened file or folder isn't the one of that path, or is a link itself.
bool IsLinked(HANDLE file, const Root& root, std::wstring_view path) noexcept
{
    if (path.size() <= root.Folder.size())
        return true; // too long
    BY_HANDLE_FILE_INFORMATION info = {};
    if (!::GetFileInformationByHandle(file, &info) ||
        (!(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && info.nNumberOfLinks > 1))
        return true;
    // Other marks than those of links, as of cloud storage, don't matter.
    FILE_ATTRIBUTE_TAG_INFO tag = {};
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
        (!::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &tag, sizeof(tag)) ||
         IsReparseTagNameSurrogate(tag.ReparseTag)))
        return true;
    Buffer buffer;
    const std::wstring_view found = FinalPath(file, buffer);
    const std::wstring_view below = path.substr(root.Folder.size());
    return found.size() != root.Final.size() + below.size() ||
           !IsSameName(found.substr(0, root.Final.size()), root.Final) ||
           !IsSameName(found.substr(root.Final.size()), below);
}

/// Looks at a file or folder that is there, the link itself if it is one.
Win32::CFileHandle OpenToLook(const wchar_t* path, DWORD flags) noexcept
{
    return Win32::CFileHandle(::CreateFileW(path, FILE_READ_ATTRIBUTES,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
}

Win32::CFileHandle Refused() noexcept
{
    ::SetLastError(ERROR_CANT_RESOLVE_FILENAME);
    return {};
}
} // namespace

void FollowNoLinksBelow(const std::wstring& folder)
{
    Buffer buffer;
    const Win32::CFileHandle handle = OpenToLook(folder.c_str(), 0);
    // A folder that can't be looked at has no final path, which no file below it begins with.
    const std::wstring_view found = handle ? FinalPath(handle.Get(), buffer) : std::wstring_view();
    for (const Root*& root : g_Roots)
    {
        if (!root)
        {
            root = new Root{folder, std::wstring(found)};
            break;
        }
    }
}

bool LinkInWay(const std::wstring& path) noexcept
{
    const Root* const root = RootOf(path);
    if (!root)
        return false;
    Buffer part;
    const std::wstring_view whole = WithSingleSeparators(path, part);
    if (whole.empty())
        return true;
    // Ends at the root at the latest, which a separator follows.
    for (std::size_t size = whole.find_last_not_of(L'\\') + 1; size > root->Folder.size();
         size = std::wstring_view(part.data(), size).rfind(L'\\'))
    {
        part[size] = L'\0';
        if (const Win32::CFileHandle there = OpenToLook(part.data(), FILE_FLAG_OPEN_REPARSE_POINT))
            return IsLinked(there.Get(), *root, {part.data(), size});
    }
    return false;
}

Win32::CFileHandle OpenUserFile(const std::wstring& path, DWORD access, DWORD share,
                                DWORD disposition) noexcept
{
    const auto open = [&](DWORD how, DWORD flags) noexcept {
        return Win32::CFileHandle(
            ::CreateFileW(path.c_str(), access, share, nullptr, how, FILE_ATTRIBUTE_NORMAL | flags, nullptr));
    };
    const Root* const root = RootOf(path);
    if (!root)
        return open(disposition, 0);

    Win32::CFileHandle file = open(OPEN_EXISTING, 0);
    if (!file && disposition != OPEN_EXISTING && ::GetLastError() == ERROR_FILE_NOT_FOUND)
    {
        if (LinkInWay(path))
            return Refused();
        // Not through a link that comes up meanwhile: with it there nothing is made.
        file = open(CREATE_NEW, FILE_FLAG_OPEN_REPARSE_POINT);
        if (!file && ::GetLastError() == ERROR_FILE_EXISTS)
            file = open(OPEN_EXISTING, 0);
    }
    if (!file)
        return file;
    Buffer buffer;
    if (IsLinked(file.Get(), *root, WithSingleSeparators(path, buffer)))
        return Refused();
    if (disposition == CREATE_ALWAYS && !::SetEndOfFile(file.Get()))
        file.Reset();
    return file;
}

bool DeleteUserFile(const std::wstring& path) noexcept
{
    if (!LinkInWay(path))
        return ::DeleteFileW(path.c_str()) != FALSE;
    ::SetLastError(ERROR_CANT_RESOLVE_FILENAME);
    return false;
}
} // namespace LS::System::IO
