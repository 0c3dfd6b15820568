#pragma once

#include "Ls/System/Net/MultiStreamDownload/ProgressRecord.h"

#include <cstdint>
#include <string>
#include <string_view>

// What may be resumed, as functions of values.
namespace LS::System::Net::MultiStreamDownload
{
/// True when a download goes on with the size and the stream count of its record: one or two streams, each
/// with a range of its own. (Two streams of an unknown size or of one byte could never be answered, and the
/// record would fail every later run as well.)
bool IsAdoptable(const DownloadRecord& record) noexcept;

/// A stream that is about to ask the server, and what lies on disk.
struct StreamSituation
{
    std::uint32_t Start = 0;
    std::uint32_t End = 0;
    bool SizeKnown = false;
    std::uint32_t ThreadsUsed = 1;
    /// 0 without a cache file.
    std::uint64_t CacheSize = 0;
};

/// True when the stream goes on at the record's offset. A record of bytes that the cache file doesn't hold
/// (someone deleted the file) isn't used: the result would have a hole of the right size.
bool IsUsable(const StreamRecord& record, const StreamSituation& stream) noexcept;

/// "Detected file change(s) in: ..." when the server's file isn't the one that the record tells of; empty
/// when it is. An unknown date or size on either side says nothing, but a file that ends before the record's
/// offset has changed whatever size was known.
std::string FileChangeMessage(const StreamRecord& record, std::string_view lastModified,
                              std::uint32_t fileSize);
} // namespace LS::System::Net::MultiStreamDownload
