#pragma once

#include "Ls/System/Net/MultiStreamDownload/ProgressRecord.h"
#include "Ls/System/Win32/Thread.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>
#include <string>

// The two small files beside an output file from which an interrupted download goes on. A record is written
// in place with one WriteFile, never emptied first, so whatever ends the program leaves either the old or the
// new record, and a torn one fails its check.
namespace LS::System::Net::MultiStreamDownload
{
/// outputPath + ".downloadstate", outputPath + "." + streamIndex, outputPath + ".cache" (the data).
std::wstring StateFilePath(const std::wstring& outputPath);
std::wstring StreamFilePath(const std::wstring& outputPath, std::uint32_t streamIndex);
std::wstring CacheFilePath(const std::wstring& outputPath);

/// Deletes the output file, the stream files 0 and 1 and the state file, and the cache file when asked, as
/// far as they exist. Throws CException when one that exists can't be deleted.
void DeleteStateFiles(const std::wstring& outputPath, bool withCache);
/// Deletes the stream files and the state file as far as nobody holds them, with up to tries tries each.
void DropStateFiles(const std::wstring& outputPath, int tries);

/// The whole download's state file.
class DownloadProgress
{
public:
    explicit DownloadProgress(const std::wstring& outputPath);
    DownloadProgress(const std::wstring& outputPath, std::uint32_t threadsUsed, std::uint32_t downloadSize);

    /// Throws CException "File open failed" or "Write download progress failed", followed by the path and
    /// the values.
    void Write() const;
    /// False, and the values left alone, unless a valid file is there.
    bool Read();

    DownloadRecord Values;

private:
    std::wstring Describe(const wchar_t* failure) const;

    std::wstring m_Path;
};

/// One stream's progress file.
///
/// The file stays open from the first Write on, since a stream writes a record for every block and opening
/// costs more than the block itself (some 150 us a time under Wine, against 1.5 us). Others may read it
/// meanwhile, and delete it: then the stream has nothing to resume from until its next attempt. Nothing of
/// the program deletes it while a stream lives.
class StreamProgress
{
public:
    StreamProgress(const std::wstring& outputPath, std::uint32_t streamIndex);

    /// Throws CException "File open failed" or "Write stream progress failed", followed by the path and the
    /// values. The tries to open end early when caller has been asked to finish.
    void Write(const Win32::CThread& caller);
    /// False, and the values left alone, unless a valid file is there.
    bool Read(const Win32::CThread& caller);
    /// What lies there is not to be used by any attempt or run: it is replaced, in place, by a record of no
    /// stream. Nothing happens without a file. Throws like Write; false when the debug switch lets that pass.
    bool Forget(const Win32::CThread& caller);
    void Close() noexcept { m_File.Reset(); }

    StreamRecord Values;

private:
    std::wstring Describe(const wchar_t* failure) const;

    std::wstring m_Path;
    Win32::CFileHandle m_File;
};
} // namespace LS::System::Net::MultiStreamDownload
