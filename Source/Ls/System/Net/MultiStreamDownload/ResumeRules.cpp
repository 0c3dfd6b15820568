#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"

#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/String/Printf.h"

namespace LS::System::Net::MultiStreamDownload
{
bool IsAdoptable(const DownloadRecord& record) noexcept
{
    return (record.ThreadsUsed == 1 || record.ThreadsUsed == 2) &&
           RangesFit(record.DownloadSize, record.ThreadsUsed);
}

bool IsUsable(const StreamRecord& record, const StreamSituation& stream) noexcept
{
    if (record.ThreadsUsed != stream.ThreadsUsed || record.Offset < stream.Start)
        return false;
    if (stream.SizeKnown && record.Offset > std::uint64_t{stream.End} + 1)
        return false;
    return record.Offset <= stream.CacheSize;
}

std::string FileChangeMessage(const StreamRecord& record, std::string_view lastModified,
                              std::uint32_t fileSize)
{
    const std::string_view recorded = record.LastModifiedText();
    const std::string_view present = FittingDate(lastModified);
    const bool dateChanged = recorded != present && recorded != UnknownDate && present != UnknownDate;
    const bool sizeChanged = (record.DownloadSize != fileSize && record.DownloadSize != 0 && fileSize != 0) ||
                             (fileSize != 0 && record.Offset > fileSize);
    if (!dateChanged && !sizeChanged)
        return {};
    return Printf("Detected file change(s) in: %s %s", dateChanged ? "modified date" : "",
                  sizeChanged ? "size " : "");
}
} // namespace LS::System::Net::MultiStreamDownload
