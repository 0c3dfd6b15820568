#pragma once

#include "Updater/Dialog/ProgressBands.h"

#include <string>

/// Fetches the patch with a single request into the product's data folder, fills patchPath and returns once
/// the whole file is there. Throws CExitCodeException 1024 to 1027, and CException when the progress value
/// can't be opened. What a failed fetch leaves is deleted by the next one.
void GetPatchEXE(const std::wstring& productName, bool isBlueStacks, const std::string& url,
                 std::wstring& patchPath, bool emitProgress, const ProgressSink& showProgress);
