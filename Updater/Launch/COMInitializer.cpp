#include "Updater/Launch/COMInitializer.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

#include <objbase.h>

CCOMInitializer::CCOMInitializer()
{
    const HRESULT result = ::CoInitialize(nullptr);
    if (result == S_OK || result == S_FALSE) // S_FALSE: done before; counted all the same
        return;
    LS_LOG_INFO("CCOMInitializer::CCOMInitializer() : CoInitialize() failed w/ hResult : 0x%08lx", result);
    LS_LOG_FAILURE("CoInitialize failed");
    throw LS::System::CExitCodeException(ExitCodes::ComNotInitialized);
}

CCOMInitializer::~CCOMInitializer()
{
    ::CoUninitialize();
}
