#include "Updater/Fetch/GetPatchEXE2.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Fetch/DownloadProgressValue.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/ProgramVersion.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

using LS::System::CExitCodeException;
using LS::System::CRefPtr;
using namespace LS::System::Net::MultiStreamDownload;

namespace
{
constexpr DWORD PollMs = 50;
constexpr std::uint32_t Retries = 5;
/// The server's statistics know this program by it.
constexpr const char* UserAgent =
    "Mozilla/4.0 (compatible; MSIE 5.0; Updater " LS_PROGRAM_VERSION "; CDA 6.0)";

/// Off also when the value can't be opened: progress is no reason to give up a fetch.
CDownloadProgressValue OpenProgressValue(bool wanted)
{
    try
    {
        return CDownloadProgressValue(wanted);
    }
    catch (...)
    {
        LS_LOG_INFO("GetPatchEXE2() : catch(...) : failure setting progress regkey");
        return CDownloadProgressValue(false);
    }
}

[[noreturn]] void ThrowFailure(const DownloadStatus& status)
{
    LS_LOG_INFO("GetPatchEXE2() : Status.Error == TRUE : Error in download");
    std::wstring signature = L"No Exception";
    if (status.hException)
    {
        signature = ShortenedSignature(status.hException->ShortDescription());
        LS_LOG_INFO(L"GetPatchEXE2() : Status.hException != NULL : Error in download : Signature is: %ls",
                    signature.c_str());
    }
    CRunAnalytics::ErrorEvent(
        L"NewDL",
        LS::Printf(L"%.0f %u", static_cast<double>(status.PercentDone), status.ThreadsUsed) + signature);
    // These name the older request on purpose: support searches logs of either fetch for them.
    LS_LOG_INFO("GetPatchEXE2() : CHttpWebRequest::DownloadIsOk failed, ErrorCode: %d",
                static_cast<int>(ExitCodes::FetchFailed));
    LS_LOG_FAILURE("CHttpWebRequest::DownloadIsOk failed");
    throw CExitCodeException(ExitCodes::FetchFailed);
}

void ReplaceAll(std::wstring& text, std::wstring_view what, std::wstring_view with)
{
    for (auto at = text.find(what); at != std::wstring::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}
} // namespace

bool GetPatchEXE2(const std::string& url, std::wstring& patchPath, const std::wstring& productName,
                  bool isBlueStacks, bool emitProgress, const ProgressSink& showProgress)
{
    LS_LOG_INFO("GetPatchEXE2() : Begin");
    SetupFilePathAndName(productName, isBlueStacks, patchPath, url);

    const auto download = LS::System::MakeRef<CHTTPDownload>(UserAgent, LS::AnsiToWide(url), patchPath,
                                                             nullptr, nullptr, Retries);
    CDownloadProgressValue progressValue = OpenProgressValue(emitProgress);

    DownloadStatus status = download->GetStatus();
    LS_LOG_INFO("GetPatchEXE2() : Starting wait for download complete");
    // The download ends by itself, well or not: each of its waits has a limit and so have its attempts.
    while (!status.Finished && !status.Error)
    {
        if (progressValue.IsOn())
            progressValue.Write(status.PercentDone);
        if (showProgress)
            showProgress(DownloadBand(status.PercentDone));
        ::Sleep(PollMs);
        status = download->GetStatus();
    }
    LS_LOG_INFO("GetPatchEXE2() : Download complete");
    if (progressValue.IsOn())
        progressValue.WriteDone();

    if (status.Error)
        ThrowFailure(status);
    CRunAnalytics::ErrorEvent(L"NewDLSuccess", LS::Printf(L"%u", status.ThreadsUsed));
    LS_LOG_INFO("GetPatchEXE2() : Success, returning TRUE");
    return true;
}

std::wstring ShortenedSignature(std::wstring_view signature)
{
    std::wstring text(signature);
    ReplaceAll(text, L"Download", L"DL");
    ReplaceAll(text, L"MultiStream", L"MS");
    ReplaceAll(text, L"Thread", L"T");
    return text;
}
