#include "Ls/System/Util/Log.h"

#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/Util/DateTime.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/Mutex.h"
#include "Ls/System/Win32/ScopeExit.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <shlwapi.h>

#include <cstdarg>
#include <sys/stat.h>

namespace LS::System::Util
{
namespace
{
/// Two processes that start at once make their logs one after the other.
constexpr wchar_t FirstUseMutex[] = L"{BA271941-19A8-4EC6-A45D-C83CACDD92BC}";

/// A file above this many bytes gets no further line.
constexpr std::int64_t MaxFileSize = 10000000;

constexpr std::size_t HeaderDashes = 80;

/// File name of the running program, extension included.
std::wstring ProgramName()
{
    wchar_t path[MAX_PATH + 1] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring_view text = path;
    return text.find(L'\\') == std::wstring_view::npos ? std::wstring() : std::wstring(IO::FileNameOf(text));
}

/// -1 when it can't be told.
std::int64_t FileSize(const std::wstring& path) noexcept
{
    struct _stat64 status;
    return _wstat64(path.c_str(), &status) == 0 ? status.st_size : -1;
}

/// The line in the code page of the system, with a replacement for what that lacks, as text files have it:
/// each line feed with a carriage return before it, be it there already or not. The runtime's own wide output
/// would stop at such a character, and the rest of the line, its line feed included, would be lost; its text
/// mode would double the carriage returns of the texts that have them.
std::string ToText(const std::wstring& line)
{
    const int length = static_cast<int>(line.size());
    const int size = ::WideCharToMultiByte(CP_ACP, 0, line.c_str(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_ACP, 0, line.c_str(), length, bytes.data(), size, nullptr, nullptr);
    for (std::size_t at = bytes.find('\n'); at != std::string::npos; at = bytes.find('\n', at + 1))
    {
        if (at == 0 || bytes[at - 1] != '\r')
            bytes.insert(at++, 1, '\r');
    }
    return bytes;
}
} // namespace

std::atomic<CLog*> CLog::ms_pInstance{nullptr};
bool CLog::ms_LoggingAllowed = true;

CLog& CLog::Instance()
{
    if (!ms_pInstance)
    {
        const Win32::CMutex mutex(FirstUseMutex, false);
        const Win32::CMutexLock lock(mutex);
        if (!ms_pInstance)
            ms_pInstance = new CLog;
    }
    return *ms_pInstance;
}

CLog::CLog()
{
    const std::wstring base = GetPerUserAppDataPath();
    if (base.empty())
        return; // a developer's "continue": no file, rather than one in the root of the drive
    _SetOutputFile(base + L"\\Larkspur\\Logs\\" + ProgramName() + L".log", false);
}

void CLog::_SetOutputFile(const std::wstring& path, bool deleteExisting)
{
    ::OutputDebugStringW((L"CLog::_SetOutputFile() : " + path + L"\n").c_str());

    if (IO::LinkInWay(path))
    {
        {
            const Win32::CLock lock(m_StateLock);
            m_OutputPath.clear();
        }
        // Not through Instance, which may be at work on this object's making.
        WriteLine(LS_LOG_LOCATION(LogLevelFailure),
                  L"CLog::_SetOutputFile() : A link stands in the way, no log file : " + path);
        return;
    }
    const std::wstring folder(IO::FolderOf(path));
    if (!folder.empty() && !::PathFileExistsW(folder.c_str()))
        IO::CDirectory::CreateDirectory(folder);

    const Win32::CLock lock(m_StateLock);
    m_OutputPath = path;
    if (deleteExisting)
        IO::DeleteUserFile(path);
    if (path.empty())
        return;

    // The start header is kept as readers of these logs know it, with its three oddities. The test is for a
    // null handle, so a failed open is written to in vain. Nothing seeks to the end: an old file's first
    // bytes are overwritten. The count of characters is passed as the count of bytes: 52 dashes arrive.
    const Win32::CFileHandle file = IO::OpenUserFile(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS);
    if (file.Get() == nullptr)
        return;
    try
    {
        const std::wstring header = std::wstring(HeaderDashes, L'-') + TimeStamp(LocalTime()) + L"\n";
        DWORD written = 0;
        ::WriteFile(file.Get(), header.c_str(), static_cast<DWORD>(header.size()), &written, nullptr);
    }
    catch (...)
    {
        // A log without a header is still a log.
    }
}

void CLog::RemoveThreadName(std::uint32_t threadId) noexcept
{
    if (CLog* log = ms_pInstance)
    {
        const Win32::CLock lock(log->m_StateLock);
        log->m_ThreadNames.erase(threadId);
    }
}

void CLog::DrainStandardOutput() noexcept
{
    if (CLog* log = ms_pInstance)
        log->m_StandardOutput.Drain();
}

void CLog::WriteText(const LogLocation& location, const std::wstring& message) noexcept
{
    try
    {
        Instance().WriteLine(location, message);
    }
    catch (...)
    {
        // The log never reports its own failures: the message is lost.
    }
}

void CLog::WriteFormat(const LogLocation* location, const wchar_t* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    try
    {
        Instance().WriteLine(*location, PrintfVaListToWString(format, arguments));
    }
    catch (...)
    {
        // As in WriteText.
    }
    va_end(arguments);
}

void CLog::WriteFormat(const LogLocation* location, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    try
    {
        Instance().WriteLine(*location, AnsiToWide(PrintfVaListToString(format, arguments)));
    }
    catch (...)
    {
        // As in WriteText.
    }
    va_end(arguments);
}

void CLog::WriteLine(const LogLocation& location, const std::wstring& message)
{
    if (location.Level > m_LevelThreshold)
        return;

    const Win32::CLock lock(m_WriteLock);
    // The lock lets its own thread through: a message from inside a write is dropped here.
    if (!ms_LoggingAllowed)
        return;
    const bool allowed = std::exchange(ms_LoggingAllowed, false);
    const Win32::CScopeExit restore([allowed]() noexcept { ms_LoggingAllowed = allowed; });

    const std::wstring line = BuildLine(location, message);
    ::OutputDebugStringW(line.c_str());
    const std::string bytes = ToText(line);
    if (m_EchoToConsole)
        m_StandardOutput.Put(bytes);

    const std::wstring path = CurrentFilePart();
    if (path.empty())
        return;
    DWORD written = 0;
    if (const Win32::CFileHandle file =
            IO::OpenUserFile(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS))
        ::WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

std::wstring CLog::BuildLine(const LogLocation& location, const std::wstring& message)
{
    std::wstring line;
    line.reserve(message.size() * 2);
    {
        const Win32::CLock lock(m_StateLock);
        const auto name = m_ThreadNames.find(::GetCurrentThreadId());
        if (name != m_ThreadNames.end())
            line = name->second;
    }
    if (m_PrefixTimeStamp)
        line.append(TimeStamp(LocalTime())).append(L":");
    if (m_PrefixThreadId)
        line.append(Printf(L"%#x", static_cast<unsigned>(::GetCurrentThreadId()))).append(L" ");
    if (m_PrefixSourceLocation)
    {
        line.append(AnsiToWide(location.File)).append(L" ").append(DecimalText(location.Line));
        line.append(L" ").append(AnsiToWide(location.Function)).append(L": ");
    }
    return line.append(message).append(L"\n");
}

std::wstring CLog::CurrentFilePart()
{
    std::wstring base;
    {
        const Win32::CLock lock(m_StateLock);
        base = m_OutputPath;
    }
    if (base.empty())
        return base;
    std::wstring path = m_RotationIndex > 1 ? base + L"." + DecimalText(m_RotationIndex) : base;
    while (FileSize(path) > MaxFileSize)
    {
        ++m_RotationIndex;
        path = base + L"." + DecimalText(m_RotationIndex);
    }
    return path;
}
} // namespace LS::System::Util
