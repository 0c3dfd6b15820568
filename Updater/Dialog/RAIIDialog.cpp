#include "Updater/Dialog/RAIIDialog.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Run/ExitCodes.h"

#include <commctrl.h>

CRAIIDialog::CRAIIDialog(DLGPROC procedure)
{
    // Without the progress bar's class the dialog isn't made.
    const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_PROGRESS_CLASS};
    ::InitCommonControlsEx(&controls);

    m_Window.Reset(::CreateDialogParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_PROGRESS), nullptr,
                                        procedure, 0));
    if (!m_Window)
    {
        LS_LOG_INFO("CRAIIDialog::CRAIIDialog() : ::CreateDialog() returned NULL hWnd, throw out");
        LS_LOG_FAILURE("CreateDialog failure");
        throw LS::System::CExitCodeException(ExitCodes::DialogNotCreated);
    }
}
