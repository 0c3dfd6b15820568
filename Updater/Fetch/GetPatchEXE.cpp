#include "Updater/Fetch/GetPatchEXE.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Net/HttpWebRequest.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Fetch/DownloadProgressValue.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

using LS::System::CExitCodeException;
using LS::System::CRefPtr;
using LS::System::Net::CHttpWebRequest;

namespace
{
constexpr DWORD PollMs = 50;
/// As the streams have it, whose positions have 32 bits: a server that sends without end doesn't fill the
/// disk.
constexpr std::uint64_t MostPatchBytes = UINT32_MAX;
} // namespace

void GetPatchEXE(const std::wstring& productName, bool isBlueStacks, const std::string& url,
                 std::wstring& patchPath, bool emitProgress, const ProgressSink& showProgress)
{
    LS_LOG_INFO("GetPatchEXE() : Begin");
    SetupFilePathAndName(productName, isBlueStacks, patchPath, url);

    const CRefPtr<CHttpWebRequest> request = CHttpWebRequest::CreateHttp(url, 0, 0, 0, 0);
    if (!request)
    {
        LS_LOG_INFO("GetPatchEXE() : failed to create httpWebRequest object, throwing out");
        LS_LOG_FAILURE("CHttpWebRequest::CreateHttp failed");
        throw CExitCodeException(ExitCodes::FetchNotCreated);
    }
    request->SetDestination(patchPath);
    request->SetMostBytes(MostPatchBytes);
    request->Start();

    CDownloadProgressValue progressValue(emitProgress);
    // The request ends by itself, well or not: it has time-outs for a server that falls silent.
    float percent = request->PercentDone();
    while (percent < 100.0F)
    {
        if (progressValue.IsOn())
        {
            progressValue.Write(percent);
            LS_LOG_INFO("GetPatchEXE() : Download Progress: %f", static_cast<double>(percent));
        }
        if (showProgress)
            showProgress(DownloadBand(request->PercentDone()));
        ::Sleep(PollMs);
        percent = request->PercentDone();
    }
    LS_LOG_INFO("GetPatchEXE() : PercentDone() == 100.0f");
    if (progressValue.IsOn())
        progressValue.WriteDone();

    if (!request->DownloadIsOk())
    {
        LS_LOG_INFO("GetPatchEXE() : Download complete but !DownloadIsOk(), throwing out");
        CRunAnalytics::ErrorEvent(L"OldDL", L"NA");
        LS_LOG_FAILURE("CHttpWebRequest::DownloadIsOk failed");
        throw CExitCodeException(ExitCodes::FetchFailed);
    }
    CRunAnalytics::ErrorEvent(L"OldDLSuccess", L"NA");
    LS_LOG_INFO(L"GetPatchEXE() : End : Returning: %s", patchPath.c_str());
}
