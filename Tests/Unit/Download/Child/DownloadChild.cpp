// A program that downloads one file and can be killed at any moment: DownloadChild URL PATH. Ends with 0 when
// the file is there, 1 when the download has failed.
#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"

#include <windows.h>

using namespace LS::System;
using namespace LS::System::Net::MultiStreamDownload;

namespace
{
struct End
{
    HANDLE Event;
    bool Error;
};

void Take(void* context, const DownloadStatus& status)
{
    End& end = *static_cast<End*>(context);
    if (!status.Finished && !status.Error)
        return;
    end.Error = status.Error;
    ::SetEvent(end.Event);
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count != 3)
        return 2;
    End end = {::CreateEventW(nullptr, TRUE, FALSE, nullptr), false};
    const auto download =
        MakeRef<CHTTPDownload>("DownloadChild", arguments[1], arguments[2], &Take, &end, 5U);
    ::WaitForSingleObject(end.Event, INFINITE);
    return end.Error ? 1 : 0;
}
