#include "Updater/Query/GetPatchURL.h"

#include "Ls/System/Net/HttpWebRequest.h"
#include "Ls/System/String/Convert.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Settings/Hosts.h"

#include <windows.h>

using LS::System::CRefPtr;
using LS::System::Net::CHttpWebRequest;

namespace
{
/// The client and its user wait for this answer, so the limit is far below the transport's own.
constexpr std::uint32_t AnswerLimitMs = 5000;
constexpr std::uint32_t PollMs = 10;

/// False when the time is over before the transfer has ended. An answer that is only seen after the limit
/// is late, however good it is.
bool WaitForEnd(const CHttpWebRequest& request)
{
    const std::uint32_t start = ::GetTickCount();
    while (::GetTickCount() - start <= AnswerLimitMs)
    {
        if (request.PercentDone() >= 100.0F)
            return true;
        ::Sleep(PollMs);
    }
    return false;
}
} // namespace

std::string UpdateQueryURL(const std::string& host, const UpdateQuery& query)
{
    const std::string parameters = "AppName:" + LS::WideToAnsi(query.ProductName) +
                                   "|Version:" + query.InstalledVersion +
                                   (query.Throttling ? "" : "|throttle:0");
    std::string url = "http://" + host + "/Update.asmx/GetUpdate2?parameters=";
    // Nothing is escaped but what would end the query: behind a "#" nothing is sent any more.
    for (const char c : parameters)
        url += c == '#' ? "%23" : std::string(1, c);
    return url;
}

std::int32_t GetPatchURL(const UpdateQuery& query, std::string& patchURL)
{
    const CRefPtr<CHttpWebRequest> request =
        CHttpWebRequest::CreateHttp(UpdateQueryURL(Hosts::UpdateHost(), query), 0, 0, 0, 0);
    if (!request)
        return ExitCodes::QueryNotCreated;
    request->SetUserAgent("Mozilla/4.0 (compatible; MSIE 5.0; " + query.ProgramName + " " +
                          query.ProgramVersion + ")");
    request->SetContentType("text/html");
    request->Start();

    if (!WaitForEnd(*request))
        return ExitCodes::QueryTimeOut;
    if (!request->DownloadIsOk())
        return ExitCodes::QueryNoResponse;
    if (request->ResponseLength() == LS::System::Net::UnknownLength)
        return ExitCodes::QueryBadLength;
    return ParseUpdateAnswer(request->ResponseBody(), patchURL);
}
