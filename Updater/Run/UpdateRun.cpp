#include "Updater/Run/UpdateRun.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Uuid.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Dialog/Prompts.h"
#include "Updater/Fetch/GetPatchEXE.h"
#include "Updater/Fetch/GetPatchEXE2.h"
#include "Updater/Launch/LaunchEXE.h"
#include "Updater/ProgramVersion.h"
#include "Updater/Query/GetPatchURL.h"
#include "Updater/Query/ProductVersion.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Run/DialUp.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Run/KeptAwake.h"
#include "Updater/Run/LinkRule.h"
#include "Updater/Run/RunLog.h"
#include "Updater/Settings/DebugSettings.h"

#include <windows.h>

#include <utility>
#include <vector>

using namespace LS::System;

namespace
{
constexpr const char* ProgramName = "Updater";

constexpr DWORD PollMs = 50;

/// Waits until that much time has passed since startTicks.
void WaitUntilPassed(std::uint32_t milliseconds, std::uint32_t startTicks)
{
    while (::GetTickCount() - startTicks < milliseconds)
        ::Sleep(PollMs);
}

/// By the folder that the run was started in: where a file's version is asked for, the system searches for a
/// relative path as for a library, in the system folder (see SearchSystemFolderOnly). An empty path stays so.
std::wstring AbsolutePath(const std::wstring& path)
{
    std::wstring result(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(result.size()), result.data(),
                                        nullptr)) > result.size())
        result.resize(length);
    result.resize(length);
    return result.empty() ? path : result;
}

// Where the bar stands between the stages; the download fills 20 to 50, the installation 55 to 100.
constexpr int OnlineProgress = 10;
constexpr int PatchFoundProgress = 20;
constexpr int PatchFetchedProgress = 50;
constexpr int LaunchProgress = 55;

constexpr const wchar_t* NoDetail = L"NA";

void ShowProgress(int progress)
{
    if (CUI* const dialog = CUI::ms_pInstance)
        dialog->SetProgress(progress);
}

HWND PromptOwner()
{
    const CUI* const dialog = CUI::ms_pInstance;
    return dialog ? dialog->VisibleWindow() : nullptr;
}

/// What a failed query is called in analytics; null when it has no name there.
const wchar_t* QueryErrorName(std::int32_t code) noexcept
{
    switch (code)
    {
    case ExitCodes::QueryTimeOut:
        return L"GetURLTimeOut";
    case ExitCodes::QueryBadLength:
        return L"GetURLBadLen";
    case ExitCodes::QueryNoResponse:
        return L"GetURLNoResp";
    case ExitCodes::QueryNoXmlDeclaration:
        return L"GetURLNoXMLDeclaration";
    case ExitCodes::QueryNoStringElement:
        return L"GetURLNoStringElem";
    case ExitCodes::QueryBadStringNode:
        return L"GetURLBadStringNode";
    case ExitCodes::QueryBadStringValue:
        return L"GetURLBadStringValue";
    default:
        return nullptr;
    }
}

/// Ends the run with the query's code.
[[noreturn]] void ProcessAndThrowError(std::int32_t code)
{
    LS_LOG_INFO("ProcessAndThrowError() : got exit code 0x%x from GetPatchURL", code);
    if (const wchar_t* const name = QueryErrorName(code))
        CRunAnalytics::ErrorEvent(name, NoDetail);
    throw CExitCodeException(code);
}

/// The one event that every run which got as far as having an outcome reports.
void SubmitOutcome(std::int32_t code) noexcept
{
    try
    {
        CRunAnalytics::UpdateEvent(L"Update", code);
    }
    catch (...) // no memory for the name: this run goes unreported
    {
    }
}

/// The failure that ended the run; detail is called for its text.
template <class Detail>
void SubmitFailure(const wchar_t* name, std::int32_t code, Detail detail) noexcept
{
    try
    {
        CRunAnalytics::ErrorEvent(name, detail());
    }
    catch (...) // no memory for the text
    {
    }
    SubmitOutcome(code);
}

/// The one place where the text of an exception that ends the run is told.
void LogWhole(const CException& exception) noexcept
{
    try
    {
        // As a ready text: what the formatter finds too long would be lost.
        LS::System::Util::CLog::WriteText({"main.cpp", __LINE__, "wWinMain", Util::LogLevelFailure},
                                          exception.Format());
    }
    catch (...) // out of memory: the lines around this one still tell what happened
    {
    }
}
} // namespace

CUpdateRun::CUpdateRun() noexcept : m_StartTicks(::GetTickCount()) {}

std::int32_t CUpdateRun::Run(const wchar_t* commandLine, int argumentCount,
                             const wchar_t* const* arguments) noexcept
{
    std::int32_t code = ExitCodes::UnknownException;
    try
    {
        code = Update(commandLine, argumentCount, arguments);
    }
    catch (const CExitCodeException& exception)
    {
        code = exception.ExitCode();
        LS_LOG_RUN("_tWinMain() : catch (CExitCodeException %d)", code);
        SetUpdateNoAfterFailure();
        SubmitFailure(L"CExitCodeException", code, [&] { return LS::Printf(L"%d", code); });
        if (m_Dialog)
        {
            m_Dialog->SetShouldFinish();
            m_Dialog->SetQuickExit();
        }
        CloseDialog();
        LS_LOG_RUN("_tWinMain() : CExitCodeException catch block returning error code: %d", code);
    }
    catch (const CException& exception)
    {
        code = ExitCodes::Exception;
        LS_LOG_RUN("_tWinMain() : catch CException");
        LogWhole(exception);
        SetUpdateNoAfterFailure();
        LS_LOG_RUN("_tWinMain() : Submitting Analytics");
        SubmitFailure(L"CException", code, [&] { return exception.ShortDescription(); });
        CloseDialog();
        LS_LOG_RUN("_tWinMain() : CException catch block returning error code: %d", code);
    }
    catch (...)
    {
        LS_LOG_RUN("_tWinMain() : catch (...)");
        SetUpdateNoAfterFailure();
        SubmitFailure(L"...Exception", code, [] { return std::wstring(NoDetail); });
        CloseDialog();
        LS_LOG_RUN("_tWinMain() : (...) catch block returning error code: %d", code);
    }
    // Last, since it may take its whole limit: client and user know the outcome by now. A second instance has
    // told nobody and ends at once: the first one sends what it has queued.
    if (code == ExitCodes::SecondInstance)
        CRunAnalytics::Drop();
    else
        CRunAnalytics::End();
    return code;
}

std::int32_t CUpdateRun::Update(const wchar_t* commandLine, int argumentCount,
                                const wchar_t* const* arguments)
{
    FollowNoLinksWhenElevated();
    EnumerateDialUpEntries();
    std::vector<std::wstring> ownArguments;
    for (int i = 1; i < argumentCount; ++i)
        ownArguments.emplace_back(arguments[i]);
    m_Options = ParseRunOptions(commandLine, ownArguments);
    m_Options.FromFilePath = AbsolutePath(m_Options.FromFilePath);
    RefuseUnusableProductName();
    OpenRunLog(m_Options.ProductName, commandLine);
    if (m_Options.Session.empty())
        m_Options.Session = UUIDToString(CreateUUID());
    DebugSettings::Read();
    CRunAnalytics::Begin(m_Options.Partner, m_Options.DP, m_Options.Session);
    RequireProductName();
    TakeProductMutex();
    m_Events.Create(m_Options.ProductName);
    OpenDialog();

    if (!m_OnlineCheck.IsOnline())
        return EndOffline();
    ShowProgress(OnlineProgress);

    const std::string patchURL = FindPatchURL();
    ShowProgress(PatchFoundProgress);
    if (patchURL.empty())
        return EndWithoutUpdate();
    if (m_Options.ShowPrompt && !Prompts::AskToUpdate(*m_Language))
        return EndDeclined();
    if (m_Options.Notify)
        Prompts::TellThatUpdateIsNeeded(*m_Language);

    const CKeptAwake awake;
    m_Dialog->SetText(m_Language->GetText(IDS_DOWNLOADING));
    CCheckedPatch patch = FetchPatch(patchURL);
    WaitUntilPassed(DebugSettings::UpdaterMinDownloadTimeMs, m_StartTicks);
    const std::uint32_t installerCode = LaunchPatch(patch);

    LS_LOG_RUN("_tWinMain() : Dismissing the UI");
    m_Dialog->SetShouldFinish();
    LS_LOG_RUN("_tWinMain() : Submitting Analytics");
    SubmitOutcome(static_cast<std::int32_t>(installerCode));
    CRunAnalytics::End();
    CloseDialog();
    LS_LOG_RUN("_tWinMain() : Returning success: %d", ExitCodes::Done);
    return ExitCodes::Done;
}

void CUpdateRun::RefuseUnusableProductName() const
{
    // The name becomes part of file, folder and object names. One that would lead out of the program's own
    // folders (".." or a separator), to a device or to a stream ends the run before anything is made under
    // it; the program's first log file tells why. An empty name has a code of its own, later.
    const std::wstring& name = m_Options.ProductName;
    if (name.empty() || IO::IsPlainFileName(name))
        return;
    ThrowException(CException(L"The product's name can't be used as a file name: " + name, LS_HERE));
    throw CExitCodeException(ExitCodes::Exception); // a developer's "continue" doesn't lift this
}

void CUpdateRun::RequireProductName() const
{
    if (!m_Options.ProductName.empty())
        return;
    LS_LOG_RUN("_tWinMain() : Missing product name!!  Throwing CExitCodeException()");
    LS_LOG_RUN_FAILURE("ProductName required");
    throw CExitCodeException(ExitCodes::ProductNameRequired);
}

void CUpdateRun::TakeProductMutex()
{
    // A run without "/from=" is the client's fallback: it may go on beside an ordinary one.
    const std::wstring prefix = m_Options.FromFilePath.empty()
                                    ? L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-Updater2-"
                                    : L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-Updater-";
    // Support reads this text, and the one below, for either kind of run and of failure.
    LS_LOG_RUN(L"_tWinMain() : Empty FromFilePath - initing ProductMutex %s", prefix.c_str());
    // Refused where another run holds the mutex, this one doesn't keep it open: the name would live on with
    // it and refuse another run, though the one that owned the mutex had ended.
    if (auto mutex = Win32::CMutex::CreateNew(prefix + m_Options.ProductName))
    {
        m_ProductMutex = std::move(mutex);
        return;
    }
    LS_LOG_RUN("_tWinMain() : Missing product name!!  Throwing CExitCodeException()");
    LS_LOG_RUN_FAILURE("Mutex already exists for this product");
    throw CExitCodeException(ExitCodes::SecondInstance);
}

void CUpdateRun::OpenDialog()
{
    m_Language = MakeRef<CLanguage>(m_Options.Locale);
    m_Dialog = std::make_unique<CUI>(m_Options.ShowProgress, m_Language->GetText(IDS_TITLE),
                                     m_Language->GetText(IDS_CHECKING));
}

void CUpdateRun::CloseDialog() noexcept
{
    m_Dialog.reset();
}

std::int32_t CUpdateRun::EndOffline()
{
    LS_LOG_RUN("_tWinMain() : Not online skipping out of update attempt");
    std::int32_t code = ExitCodes::Offline;
    if (m_Options.FromFilePath.empty())
    {
        LS_LOG_RUN("_tWinMain() : FromFilePath is empty - this means we're in Fallback mode");
        m_Dialog->SetShouldFinish();
        m_Dialog->SetQuickExit();
        Prompts::TellToConnect(*m_Language);
        code = ExitCodes::OfflineInFallbackMode;
    }
    m_Events.SetUpdateNo();
    CloseDialog();
    CRunAnalytics::Drop();
    return code;
}

std::int32_t CUpdateRun::EndWithoutUpdate()
{
    LS_LOG_RUN("_tWinMain() : PatchURL is empty, no way to update, failout");
    SubmitOutcome(ExitCodes::NoUpdate);
    m_Dialog->SetQuickExit();
    m_Events.SetUpdateNo();
    CloseDialog();
    return ExitCodes::NoUpdate;
}

std::int32_t CUpdateRun::EndDeclined()
{
    LS_LOG_RUN("_tWinMain() : ShowPrompt TRUE but user rejected update, failout");
    m_Dialog->SetQuickExit();
    m_Events.SetUpdateDeny();
    m_Events.SetUpdateNo();
    CloseDialog();
    CRunAnalytics::Drop();
    return ExitCodes::Declined;
}

std::string CUpdateRun::FindPatchURL() const
{
    std::string patchURL;
    if (!m_Options.PatchURL.empty())
    {
        LS_LOG_RUN(L"_tWinMain() : PatchURL was passed as arg and is: %ls", m_Options.PatchURL.c_str());
        patchURL = LS::WideToAnsi(m_Options.PatchURL);
    }
    else
    {
        UpdateQuery query;
        query.ProductName = m_Options.ProductName;
        query.InstalledVersion = GetProductVersion(m_Options);
        query.ProgramName = ProgramName;
        query.ProgramVersion = LS_PROGRAM_VERSION;
        query.Throttling = m_Options.Throttling;
        LS_LOG_RUN("_tWinMain() : Product Version is: %hs", query.InstalledVersion.c_str());
        const std::int32_t code = GetPatchURL(query, patchURL);
        if (code != 0)
            ProcessAndThrowError(code);
    }
    LS_LOG_RUN("_tWinMain() : PatchURL is: %hs", patchURL.c_str());
    return patchURL;
}

CCheckedPatch CUpdateRun::CheckPatch(const std::wstring& path) const
{
    ShowProgress(PatchFetchedProgress);
    m_Dialog->SetText(m_Language->GetText(IDS_APPLYING));
    return CCheckedPatch(path, m_Options.IsBlueStacks);
}

CCheckedPatch CUpdateRun::FetchPatch(const std::string& patchURL) const
{
    CCheckedPatch patch = FetchInStreams(patchURL);
    if (patch.IsAccepted())
        return patch;
    LS_LOG_RUN("_tWinMain() : GetPatchEXE2() failed, trying GetPatchEXE() to get the patch");
    return FetchInOneRequest(patchURL);
}

CCheckedPatch CUpdateRun::FetchInStreams(const std::string& patchURL) const
{
    std::wstring path;
    try
    {
        if (!GetPatchEXE2(patchURL, path, m_Options.ProductName, m_Options.IsBlueStacks,
                          m_Options.EmitDownloadProgress, ShowProgress))
            return {};
    }
    catch (const CExitCodeException&) // the fetch has logged why
    {
        return {};
    }
    catch (const CException& exception)
    {
        LogWhole(exception);
        return {};
    }
    LS_LOG_RUN(L"_tWinMain() : GetPatchEXE2() returned TRUE : UpdateEXE is: %s", path.c_str());
    CCheckedPatch patch = CheckPatch(path);
    if (patch.IsAccepted())
    {
        LS_LOG_RUN("_tWinMain() : GetPatchEXE2() returned a correctly signed patch");
        return patch;
    }
    LS_LOG_RUN("_tWinMain() : !validSig - failed to find signature in patch");
    CRunAnalytics::ErrorEvent(L"PatchLSSigned_New", NoDetail);
    if (patch.Delete())
        return {};
    // The refused file stands where the single request would put its own: what the caller must learn is the
    // refusal, not that its file can't be deleted.
    LS_LOG_RUN_FAILURE("IsFileLarkspurSigned failed");
    throw CExitCodeException(ExitCodes::PublisherRefused);
}

CCheckedPatch CUpdateRun::FetchInOneRequest(const std::string& patchURL) const
{
    std::wstring path;
    GetPatchEXE(m_Options.ProductName, m_Options.IsBlueStacks, patchURL, path, m_Options.EmitDownloadProgress,
                ShowProgress);
    LS_LOG_RUN(L"_tWinMain() : GetPatchEXE() returned %s", path.c_str());
    CCheckedPatch patch = CheckPatch(path);
    if (!patch.IsAccepted())
    {
        LS_LOG_RUN("_tWinMain() : !validSig() : throwing out");
        CRunAnalytics::ErrorEvent(L"PatchLSSigned_Old", NoDetail);
        patch.Delete();
        LS_LOG_RUN_FAILURE("IsFileLarkspurSigned failed");
        throw CExitCodeException(ExitCodes::PublisherRefused);
    }
    return patch;
}

std::uint32_t CUpdateRun::LaunchPatch(CCheckedPatch& patch) const
{
    // The client makes way for the installer when it hears this, so it comes before the launch.
    LS_LOG_RUN("_tWinMain() : Setting updateYes Event");
    m_Events.SetUpdateYes();
    ShowProgress(LaunchProgress);

    const std::uint32_t launchTicks = ::GetTickCount();
    LS_LOG_RUN(L"_tWinMain() : Launching exe: %s", patch.Path().c_str());
    LaunchArguments arguments;
    arguments.ProductName = m_Options.ProductName;
    arguments.Locale = m_Options.Locale;
    arguments.InstallerArgs = m_Options.InstallerArgs;
    arguments.ParkPath = m_Options.ParkPath;
    arguments.AppArgs = m_Options.AppArgs;
    arguments.UseParking = m_Options.UseParking;
    arguments.DP = m_Options.DP;
    arguments.IsBlueStacks = m_Options.IsBlueStacks;
    arguments.PromptOwner = PromptOwner;
    const std::uint32_t installerCode = LaunchEXE(patch, arguments, ShowProgress);
    LS_LOG_RUN("_tWinMain() : Patch installer returned: %d", installerCode);

    WaitUntilPassed(DebugSettings::UpdaterMinInstallTimeMs, launchTicks);
    return installerCode;
}

void CUpdateRun::SetUpdateNoAfterFailure() const noexcept
{
    if (!m_Events.HasUpdateNo())
        return;
    LS_LOG_RUN("_tWinMain() : catch block Setting updateNo event");
    try
    {
        m_Events.SetUpdateNo();
    }
    catch (...) // the run ends with the code of its first failure
    {
        LS_LOG_RUN_FAILURE("Setting the updateNo event failed");
    }
}
