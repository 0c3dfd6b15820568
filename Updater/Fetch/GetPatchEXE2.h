#pragma once

#include "Updater/Dialog/ProgressBands.h"

#include <string>
#include <string_view>

/// Fetches the patch with the multi-stream engine, which goes on where an interrupted download of it stopped.
/// Fills patchPath with a place in the product's data folder and returns true once the whole file is there.
/// Throws CExitCodeException 1024, 1025 or 1027, and CException when the download can't be set up.
bool GetPatchEXE2(const std::string& url, std::wstring& patchPath, const std::wstring& productName,
                  bool isBlueStacks, bool emitProgress, const ProgressSink& showProgress);

/// An exception's signature shortened so that more of it fits a report: "Download" becomes "DL", then
/// "MultiStream" "MS", then "Thread" "T".
std::wstring ShortenedSignature(std::wstring_view signature);
