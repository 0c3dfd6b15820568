#pragma once

#include "Updater/Run/RunOptions.h"

#include <string>

/// The installed version that the update service is asked about: that of the file in FromFilePath, or what
/// BlueStacks has registered (empty when it hasn't). Throws CException for a registered version that isn't
/// a text.
std::string GetProductVersion(const RunOptions& options);

/// The product version of a file's version resource, "2.1.0.7"; "0" without a path, file or resource.
std::string FileProductVersion(const std::wstring& path);
