#pragma once

#include "Ls/System/SourceLocation.h"
#include "Ls/System/Util/StandardOutput.h"
#include "Ls/System/Win32/CriticalSection.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>

namespace LS::System::Util
{
/// Where a message comes from, and its level: a message whose level is above the log's threshold (100) is
/// dropped.
struct LogLocation
{
    std::string_view File;
    std::int32_t Line;
    std::string_view Function;
    std::int32_t Level;
};

inline constexpr std::int32_t LogLevelInformation = 70;
inline constexpr std::int32_t LogLevelFailure = 50;

/// The process-wide diagnostic log: one line per message to the debugger channel, to standard output and to
/// a file that is rotated by size. Any thread may log. Nothing throws but the creation of the log's folder,
/// in Instance and _SetOutputFile: what can't be formatted or written is lost, and so is for standard output
/// what that doesn't take in time. The file is opened and closed around each line, so a crash loses nothing
/// and others can read along. Line ends within a message become CR LF as the one at its end.
class CLog
{
public:
    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;
    ~CLog() = delete;

    /// The one log, made on the first call and never destroyed (threads may still log while the process
    /// ends). Its first file is "<application data>\Larkspur\Logs\<program>.log".
    static CLog& Instance();

    /// Formats and writes; drops the message when anything fails, the making of the log included.
    template <class Character, class... Arguments>
    static void Write(const LogLocation& location, const Character* format, Arguments... arguments) noexcept
    {
        static_assert((std::is_scalar_v<Arguments> && ...), "pass c_str() of a text");
        WriteFormat(&location, format, arguments...);
    }
    /// A ready text, written as it is.
    static void WriteText(const LogLocation& location, const std::wstring& message) noexcept;

    /// Switches to another file; with deleteExisting an old file of that name is deleted first. Creates the
    /// folder (a failure of that is thrown as CException). The name is the callers' own. Where a link stands
    /// in the way of a process that follows none, the log has no file from then on, and tells so in a line.
    void _SetOutputFile(const std::wstring& path, bool deleteExisting);

    /// Forgets the display name of a thread that is gone. Does not make the log for that.
    static void RemoveThreadName(std::uint32_t threadId) noexcept;

    /// For the end of the process: see CStandardOutput::Drain.
    static void DrainStandardOutput() noexcept;

private:
    CLog();

    static void WriteFormat(const LogLocation* location, const wchar_t* format, ...) noexcept;
    static void WriteFormat(const LogLocation* location, const char* format, ...) noexcept;
    void WriteLine(const LogLocation& location, const std::wstring& message);
    std::wstring BuildLine(const LogLocation& location, const std::wstring& message);
    std::wstring CurrentFilePart();

    static std::atomic<CLog*> ms_pInstance;
    /// False while a line is being written; guarded by m_WriteLock.
    static bool ms_LoggingAllowed;

    CStandardOutput m_StandardOutput;
    bool m_EchoToConsole = true;
    bool m_PrefixSourceLocation = false;
    bool m_PrefixThreadId = false;
    bool m_PrefixTimeStamp = false;
    std::int32_t m_LevelThreshold = 100;
    std::map<std::uint32_t, std::wstring> m_ThreadNames;
    Win32::CCriticalSection m_WriteLock;
    /// Guards the output path and the thread names; taken inside m_WriteLock, never the other way round.
    Win32::CCriticalSection m_StateLock;
    std::wstring m_OutputPath;
    std::int32_t m_RotationIndex = 1;
};
} // namespace LS::System::Util

#define LS_LOG_LOCATION(level)                                                                               \
    ::LS::System::Util::LogLocation                                                                          \
    {                                                                                                        \
        ::LS::System::FileNameOfPath(__FILE__), __LINE__, ::LS::System::QualifiedFunctionName(LS_SIGNATURE), \
            (level)                                                                                          \
    }
/// printf-style, with a wide or a narrow format: LS_LOG_INFO(L"GetPatchEXE() : End : Returning: %s", path).
#define LS_LOG_INFO(...)                                                                                     \
    ::LS::System::Util::CLog::Write(LS_LOG_LOCATION(::LS::System::Util::LogLevelInformation), __VA_ARGS__)
#define LS_LOG_FAILURE(...)                                                                                  \
    ::LS::System::Util::CLog::Write(LS_LOG_LOCATION(::LS::System::Util::LogLevelFailure), __VA_ARGS__)
