#include "Updater/Run/KeptAwake.h"

#include <windows.h>

// A failure only means that the machine sleeps as it would without this program.
CKeptAwake::CKeptAwake() noexcept
{
    ::SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
}

CKeptAwake::~CKeptAwake()
{
    ::SetThreadExecutionState(ES_CONTINUOUS);
}
