#pragma once

#include <string>

/// The folder of 32-bit programs, where the client is installed, without a trailing backslash; created when
/// missing. Throws CExitCodeException 1536 or 1537.
std::wstring GetProgramFilesX86Path();
