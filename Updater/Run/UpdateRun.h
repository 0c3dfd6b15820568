#pragma once

#include "Ls/System/Exception.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/Mutex.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Language/Language.h"
#include "Updater/Publisher/CheckedPatch.h"
#include "Updater/Run/OnlineCheck.h"
#include "Updater/Run/OutcomeEvents.h"
#include "Updater/Run/RunOptions.h"

#include <cstdint>
#include <memory>
#include <string>

/// One run of the updater, from the command line to the exit code. Lives as long as the process, on the main
/// thread, and holds the product's mutex and the outcome events all that time.
class CUpdateRun
{
public:
    CUpdateRun() noexcept;

    /// The whole run; called once. commandLine is the raw one, arguments the same split by the runtime,
    /// program name included. Returns one of ExitCodes: what goes wrong ends here.
    std::int32_t Run(const wchar_t* commandLine, int argumentCount, const wchar_t* const* arguments) noexcept;

private:
    std::int32_t Update(const wchar_t* commandLine, int argumentCount, const wchar_t* const* arguments);
    void RefuseUnusableProductName() const;
    void RequireProductName() const;
    void TakeProductMutex();
    void OpenDialog();
    /// Returns when the window has gone.
    void CloseDialog() noexcept;
    std::int32_t EndOffline();
    std::int32_t EndWithoutUpdate();
    std::int32_t EndDeclined();
    std::string FindPatchURL() const;
    /// Text and progress of the dialog for a fetched patch, then the check of its publisher.
    CCheckedPatch CheckPatch(const std::wstring& path) const;
    CCheckedPatch FetchPatch(const std::string& patchURL) const;
    /// Not accepted when the fetch failed or the publisher was refused: the other fetch is tried then.
    CCheckedPatch FetchInStreams(const std::string& patchURL) const;
    CCheckedPatch FetchInOneRequest(const std::string& patchURL) const;
    /// The installer's exit code.
    std::uint32_t LaunchPatch(CCheckedPatch& patch) const;
    void SetUpdateNoAfterFailure() const noexcept;

    const std::uint32_t m_StartTicks;
    RunOptions m_Options;
    LS::System::CRefPtr<LS::System::Win32::CMutex> m_ProductMutex;
    COutcomeEvents m_Events;
    COnlineCheck m_OnlineCheck;
    LS::System::CRefPtr<CLanguage> m_Language;
    /// From its opening until the end of the run, whichever way that comes.
    std::unique_ptr<CUI> m_Dialog;
};
