#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"

#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/ThrowException.h"

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
constexpr int OpenTries = 3;
constexpr DWORD StatePauseMs = 10;
constexpr DWORD StreamPauseMs = 50;
/// A scanner may hold a state file for a moment.
constexpr std::uint32_t DeleteTries = 5;

/// caller may be null. An existing file is opened as it is: emptying it first would leave nothing to resume
/// from when the program ends before the new record is written.
Win32::CFileHandle Open(const std::wstring& path, bool forWriting, DWORD pauseMs,
                        const Win32::CThread* caller) noexcept
{
    Win32::CFileHandle file;
    for (int failed = 0; !file && failed < OpenTries; ++failed)
    {
        if (failed > 0)
        {
            if (caller && caller->ShouldFinish())
                break;
            ::Sleep(pauseMs);
        }
        file = IO::OpenUserFile(path, forWriting ? GENERIC_WRITE : GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                forWriting ? OPEN_ALWAYS : OPEN_EXISTING);
    }
    return file;
}

template <class Record>
bool ReadRecord(const std::wstring& path, DWORD pauseMs, const Win32::CThread* caller, Record& record)
{
    if (!IO::CFile::Exists(path))
        return false;
    const Win32::CFileHandle file = Open(path, false, pauseMs, caller);
    if (!file)
        return false;
    std::array<std::uint8_t, Record::Size> bytes{};
    DWORD read = 0;
    if (!::ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) ||
        read != bytes.size())
    {
        return false;
    }
    const std::optional<Record> decoded = Decode(bytes);
    if (decoded)
        record = *decoded;
    return decoded.has_value();
}

/// At the file's beginning.
template <class Record>
bool WriteRecord(HANDLE file, const Record& record) noexcept
{
    const auto bytes = Encode(record);
    DWORD written = 0;
    return ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

/// Cuts what an older, longer file had behind the record. The record itself is there already, so a failure
/// leaves only bytes that nobody reads.
void CutBehindRecord(HANDLE file) noexcept
{
    ::SetEndOfFile(file);
}

void DeleteIfThere(const std::wstring& path)
{
    if (IO::CFile::Exists(path))
        IO::CFile::DeleteFileW(path, DeleteTries);
}

std::wstring Field(const wchar_t* name, std::uint32_t value)
{
    return std::wstring(L"; ") + name + L"=" + DecimalText(value);
}
} // namespace

std::wstring StateFilePath(const std::wstring& outputPath)
{
    return outputPath + L".downloadstate";
}

std::wstring StreamFilePath(const std::wstring& outputPath, std::uint32_t streamIndex)
{
    return outputPath + L"." + DecimalText(streamIndex);
}

std::wstring CacheFilePath(const std::wstring& outputPath)
{
    return outputPath + L".cache";
}

void DropStateFiles(const std::wstring& outputPath, int tries)
{
    for (const std::wstring& path :
         {StreamFilePath(outputPath, 0), StreamFilePath(outputPath, 1), StateFilePath(outputPath)})
    {
        for (int failed = 0; !IO::DeleteUserFile(path) && IO::CFile::Exists(path) && ++failed < tries;)
            ::Sleep(StreamPauseMs);
    }
}

void DeleteStateFiles(const std::wstring& outputPath, bool withCache)
{
    DeleteIfThere(outputPath);
    DeleteIfThere(StreamFilePath(outputPath, 0));
    DeleteIfThere(StreamFilePath(outputPath, 1));
    DeleteIfThere(StateFilePath(outputPath));
    if (withCache)
        DeleteIfThere(CacheFilePath(outputPath));
}

DownloadProgress::DownloadProgress(const std::wstring& outputPath) : m_Path(StateFilePath(outputPath)) {}

DownloadProgress::DownloadProgress(const std::wstring& outputPath, std::uint32_t threadsUsed,
                                   std::uint32_t downloadSize) :
    DownloadProgress(outputPath)
{
    Values.ThreadsUsed = threadsUsed;
    Values.DownloadSize = downloadSize;
}

void DownloadProgress::Write() const
{
    const Win32::CFileHandle file = Open(m_Path, true, StatePauseMs, nullptr);
    if (!file)
    {
        ThrowException(CException(Describe(L"File open failed"), LS_HERE));
        return;
    }
    if (!WriteRecord(file.Get(), Values))
        ThrowException(CException(Describe(L"Write download progress failed"), LS_HERE));
    CutBehindRecord(file.Get());
}

bool DownloadProgress::Read()
{
    return ReadRecord(m_Path, StatePauseMs, nullptr, Values);
}

std::wstring DownloadProgress::Describe(const wchar_t* failure) const
{
    return failure + (L";  " + m_Path) + Field(L"Version", Values.Version) +
           Field(L"ThreadsUsed", Values.ThreadsUsed);
}

StreamProgress::StreamProgress(const std::wstring& outputPath, std::uint32_t streamIndex) :
    m_Path(StreamFilePath(outputPath, streamIndex))
{
    Values.StreamIndex = streamIndex;
}

void StreamProgress::Write(const Win32::CThread& caller)
{
    const bool first = !m_File;
    if (first)
        m_File = Open(m_Path, true, StreamPauseMs, &caller);
    if (!m_File)
    {
        ThrowException(CException(Describe(L"File open failed"), LS_HERE));
        return;
    }
    ::SetFilePointer(m_File.Get(), 0, nullptr, FILE_BEGIN);
    if (!WriteRecord(m_File.Get(), Values))
    {
        const CException failure(Describe(L"Write stream progress failed"), LS_HERE);
        m_File.Reset();
        ThrowException(failure);
        return;
    }
    if (first)
        CutBehindRecord(m_File.Get());
}

bool StreamProgress::Forget(const Win32::CThread& caller)
{
    if (!IO::CFile::Exists(m_Path))
        return true;
    Values.Offset = 0;
    Values.ThreadsUsed = 0; // no download has none
    Write(caller);
    const bool forgotten = static_cast<bool>(m_File);
    Close();
    return forgotten;
}

bool StreamProgress::Read(const Win32::CThread& caller)
{
    return ReadRecord(m_Path, StreamPauseMs, &caller, Values);
}

std::wstring StreamProgress::Describe(const wchar_t* failure) const
{
    return failure + (L";  " + m_Path) + Field(L"Version", Values.Version) +
           Field(L"StreamIndex", Values.StreamIndex) + Field(L"Offset", Values.Offset) +
           Field(L"DownloadSize", Values.DownloadSize) + Field(L"ThreadsUsed", Values.ThreadsUsed) +
           L"; LastModified=" + AnsiToWide(Values.LastModifiedText());
}
} // namespace LS::System::Net::MultiStreamDownload
